#include "audio/id3v2.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include <strings.h>

#include "audio/cover_art.h"
#include "base/log.h"
#include "base/path_names.h"

namespace koli {
namespace {

constexpr const char kModule[] = "metaid3";

constexpr int64_t kTagHeaderSize = 10;
constexpr uint32_t kMaxTextFrame = 1023;  // bytes; a larger frame other than a picture ends the scan
constexpr size_t kTextBufferSize = 1024;  // bytes; holds the longest text and an added byte-order mark
constexpr int kMaxPictures = 64;          // picture frames that are tried in one tag
constexpr size_t kCommentLead = 4;        // encoding and language, before a comment's description
static_assert(kMaxTextFrame - 1 + 2 <= kTextBufferSize);  // less the encoding

/// What differs between version 2.2 and its successors.
struct FrameLayout {
    size_t id_length;
    uint32_t header_length;
    const char* picture_id;
    bool has_utf16_without_bom;  // encoding 2
};
constexpr FrameLayout kLayout22 = {3, 6, "PIC", false};
constexpr FrameLayout kLayout23 = {4, 10, "APIC", true};

/// A text frame and the field it is stored in.
struct TextFrame {
    const char* id22;
    const char* id23;
    size_t field;  // offset in Id3v2Fields
    size_t size;
    int32_t Id3v2Fields::*utf16_mark;  // null: stored as plain bytes and cut at its '/'
};
constexpr TextFrame kTextFrames[] = {
    {"TT2", "TIT2", offsetof(Id3v2Fields, title), sizeof(Id3v2Fields::title), &Id3v2Fields::title_utf16},
    {"TP1", "TPE1", offsetof(Id3v2Fields, artist), sizeof(Id3v2Fields::artist), &Id3v2Fields::artist_utf16},
    {"TAL", "TALB", offsetof(Id3v2Fields, album), sizeof(Id3v2Fields::album), &Id3v2Fields::album_utf16},
    {"TYE", "TYER", offsetof(Id3v2Fields, year), sizeof(Id3v2Fields::year), &Id3v2Fields::year_utf16},
    {"TCO", "TCON", offsetof(Id3v2Fields, genre), sizeof(Id3v2Fields::genre), &Id3v2Fields::genre_utf16},
    {"TCM", "TCOM", offsetof(Id3v2Fields, composer), sizeof(Id3v2Fields::composer),
     &Id3v2Fields::composer_utf16},
    {"COM", "COMM", offsetof(Id3v2Fields, comment), sizeof(Id3v2Fields::comment),
     &Id3v2Fields::comment_utf16},
    {"TRK", "TRCK", offsetof(Id3v2Fields, track), sizeof(Id3v2Fields::track), nullptr},
    {"TPA", "TPOS", offsetof(Id3v2Fields, disc), sizeof(Id3v2Fields::disc), nullptr},
};

/// A frame's text.  Only the longest one of encoding 2 fills the buffer and has no terminator.
struct FrameText {
    char bytes[kTextBufferSize] = {};
    bool is_utf16 = false;
    bool is_present = false;
};

struct TagScan {
    CachedFileReader* reader;
    Id3v2Fields* fields;
    const FrameLayout& layout;
    int version;
    const char* path;
    int pictures_tried = 0;

    void Run();
    uint32_t FrameSizeAt(int64_t frame);
    void ReadPicture(int64_t frame, uint32_t size);
    void ReadText(const char* id, int64_t data, size_t size) const;
    const TextFrame* FindTextFrame(const char* id) const;
    FrameText DecodeText(const uint8_t* data, size_t size, size_t text) const;
};

/// Where a comment's text begins: behind the first zero byte of its description (which cuts a UTF-16
/// description short).  `size` when there is none.
size_t CommentText(const uint8_t* data, size_t size) {
    if (size <= kCommentLead) return size;
    const void* zero = memchr(data + kCommentLead, 0, size - kCommentLead);
    return zero != nullptr ? static_cast<size_t>(static_cast<const uint8_t*>(zero) - data) + 1 : size;
}

void Store(Id3v2Fields* fields, const TextFrame& frame, const FrameText& text) {
    char* field = reinterpret_cast<char*>(fields) + frame.field;
    if (frame.utf16_mark == nullptr) {
        CopyText(field, frame.size, text.bytes);
        field[strcspn(field, "/")] = '\0';
        return;
    }
    if (text.is_utf16)
        Utf16BomCopy(text.bytes, field, frame.size);
    else
        CopyText(field, frame.size, text.bytes);
    fields->*frame.utf16_mark = text.is_utf16 ? 1 : 0;
}

/// The tag's declared length may exceed the file, and a picture's size may be anything up to 32 bits.  The
/// scan ends where the file does, as the value of missing bytes begins no identifier, and where a size, added
/// to the header's length as signed 32-bit numbers, would not lead forward.
void TagScan::Run() {
    int ignored = 0;
    const int64_t end = Id3v2Probe(reader, &ignored);
    for (int64_t frame = kTagHeaderSize; frame < end;) {
        const int first = CachedByteAt(reader, frame);
        if (first < '0' || first > 'Z') return;

        char id[5] = {};
        CachedCopy(reader, frame, reinterpret_cast<uint8_t*>(id), layout.id_length);
        const uint32_t size = FrameSizeAt(frame);
        if (strncasecmp(id, layout.picture_id, layout.id_length) == 0)
            ReadPicture(frame, size);
        else if (size > kMaxTextFrame)
            return;
        else
            ReadText(id, frame + layout.header_length, size);

        const auto advance = static_cast<int32_t>(size + layout.header_length);
        if (advance <= 0) return;
        frame += advance;
    }
}

uint32_t TagScan::FrameSizeAt(int64_t frame) {
    if (layout.id_length == 3) {
        // The three bytes are combined without shifts, so that no frame of this version exceeds 255 bytes.
        const int size = CachedByteAt(reader, frame + 3) | CachedByteAt(reader, frame + 4) |
                         CachedByteAt(reader, frame + 5);
        return static_cast<uint32_t>(size) & 0xFF;
    }
    return version == 3 ? ReadBe32Direct(reader, frame + 4) : ReadSyncsafe32(reader, frame + 4);
}

/// Tries a picture until one has been saved.  A tag of nothing but bad pictures may not fill the log or keep
/// the cover folder busy.
void TagScan::ReadPicture(int64_t frame, uint32_t size) {
    if (fields->picture_count != 0 || pictures_tried > kMaxPictures) return;
    if (++pictures_tried > kMaxPictures) {
        KOLI_LOG("Too many pictures in %s, the rest is skipped", path);
        return;
    }
    if (CoverPictureSave(reader, frame, static_cast<int32_t>(size), path, fields->picture_count + 1,
                         version) != 0)
        ++fields->picture_count;
}

void TagScan::ReadText(const char* id, int64_t data, size_t size) const {
    const TextFrame* frame = FindTextFrame(id);
    if (frame == nullptr) return;
    const bool is_comment = frame->utf16_mark == &Id3v2Fields::comment_utf16;
    if (is_comment && fields->comment[0] != '\0') return;  // the first comment wins

    uint8_t bytes[kMaxTextFrame];
    CachedCopy(reader, data, bytes, size);
    const FrameText text = DecodeText(bytes, size, is_comment ? CommentText(bytes, size) : 1);
    if (text.is_present) Store(fields, *frame, text);
}

const TextFrame* TagScan::FindTextFrame(const char* id) const {
    const auto* found =
        std::find_if(std::begin(kTextFrames), std::end(kTextFrames), [&](const TextFrame& frame) {
            return strncasecmp(id, layout.id_length == 3 ? frame.id22 : frame.id23, layout.id_length) == 0;
        });
    return found != std::end(kTextFrames) ? found : nullptr;
}

/// Encodings: 0 Latin-1, 1 UTF-16 with a byte-order mark, 2 UTF-16 big-endian without one, 3 UTF-8.
FrameText TagScan::DecodeText(const uint8_t* data, size_t size, size_t text) const {
    FrameText result;
    if (text >= size) return result;
    const char* source = reinterpret_cast<const char*>(data) + text;
    const size_t length = size - text;
    size_t used = 0;
    if (data[0] == 1) {
        result.is_utf16 = length >= 2 && IsUtf16Bom(source);
    } else if (data[0] == 2 && layout.has_utf16_without_bom) {
        memcpy(result.bytes, "\xFE\xFF", 2);
        used = 2;
        result.is_utf16 = true;
    }
    memcpy(result.bytes + used, source, length);
    result.is_present = true;
    return result;
}

void ReadFrames(Id3v2Fields* fields, CachedFileReader* reader, int version, const char* path,
                const FrameLayout& layout) {
    if (fields == nullptr || reader == nullptr || path == nullptr || *path == '\0') {
        KOLI_LOG("Bad parameters.");
        return;
    }
    TagScan{reader, fields, layout, version, path}.Run();
}

}  // namespace

int64_t Id3v2Probe(CachedFileReader* reader, int* version) {
    if (CachedByteAt(reader, 0) != 'I' || CachedByteAt(reader, 1) != 'D' || CachedByteAt(reader, 2) != '3')
        return 0;
    *version = CachedByteAt(reader, 3);
    return int64_t{ReadSyncsafe32(reader, 6)} + kTagHeaderSize;
}

void Id3v22FramesRead(Id3v2Fields* fields, CachedFileReader* reader, int version, const char* path) {
    ReadFrames(fields, reader, version, path, kLayout22);
}

void Id3v23FramesRead(Id3v2Fields* fields, CachedFileReader* reader, int version, const char* path) {
    ReadFrames(fields, reader, version, path, kLayout23);
}

bool IsUtf16Bom(const char* text) {
    return memcmp(text, "\xFE\xFF", 2) == 0 || memcmp(text, "\xFF\xFE", 2) == 0;
}

void Utf16BomCopy(const char* text, char* field, size_t size) {
    memset(field, 0, size);
    if (!IsUtf16Bom(text)) return;
    for (size_t i = 0; i + 2 < size && (text[i] != '\0' || text[i + 1] != '\0'); i += 2)
        memcpy(field + i, text + i, 2);
}

}  // namespace koli
