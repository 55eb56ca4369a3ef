// Small pictures with an EXIF block, byte by byte.
#pragma once

#include <vector>

#include "tests/media_bytes.h"

namespace koli::test {

/// One directory entry: TIFF field type (2 ASCII, 3 SHORT, 4 LONG, 5 RATIONAL), value count, value bytes.
struct ExifField {
    uint16_t tag;
    uint16_t type;
    uint32_t count;
    std::string bytes;
};

inline ExifField Ascii(uint16_t tag, const std::string& text) {
    return {tag, 2, static_cast<uint32_t>(text.size()) + 1, text + std::string(1, '\0')};
}
inline ExifField Short(uint16_t tag, uint16_t value) {
    return {tag, 3, 1, Le(value, 2)};
}
inline ExifField Long(uint16_t tag, uint32_t value) {
    return {tag, 4, 1, Le(value, 4)};
}
inline ExifField Rational(uint16_t tag, uint32_t above, uint32_t below) {
    return {tag, 5, 1, Le(above, 4) + Le(below, 4)};
}

/// Appends a directory to the TIFF bytes and returns where it stands.
inline uint32_t AppendIfd(std::string* tiff, const std::vector<ExifField>& fields) {
    const size_t at = tiff->size(), data_at = at + 2 + fields.size() * 12 + 4;
    std::string ifd = Le(fields.size(), 2), data;
    for (const ExifField& field : fields) {
        const bool is_inline = field.bytes.size() <= 4;
        ifd += Le(field.tag, 2) + Le(field.type, 2) + Le(field.count, 4) +
               (is_inline ? Padded(field.bytes, 4) : Le(data_at + data.size(), 4));
        if (!is_inline) data += field.bytes;
    }
    *tiff += ifd + Le(0, 4) + data;
    return static_cast<uint32_t>(at);
}

/// A JPEG whose only segment is an EXIF block with these fields in IFD 0 and in the EXIF directory.
inline std::string JpegWithExif(std::vector<ExifField> ifd0, const std::vector<ExifField>& exif) {
    std::string tiff = "II*" + std::string(5, '\0');
    ifd0.push_back(Long(0x8769, AppendIfd(&tiff, exif)));
    tiff.replace(4, 4, Le(AppendIfd(&tiff, ifd0), 4));
    const std::string block = "Exif" + std::string(2, '\0') + tiff;
    return "\xFF\xD8\xFF\xE1" + Be(block.size() + 2, 2) + block + "\xFF\xDA";
}

}  // namespace koli::test
