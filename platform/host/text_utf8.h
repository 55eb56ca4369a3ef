// Text as tags hold it, made valid UTF-8 for the databases.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/host/tag_charset.h"

namespace koli::host {

/// The bytes of a text field up to its terminator, at most the whole field.
template <size_t N>
std::string_view FieldText(const char (&field)[N]) {
    const std::string_view whole(field, N);
    return whole.substr(0, whole.find('\0'));
}

/// The UTF-16 text in `bytes` behind its byte-order mark, up to a zero unit or the last whole unit; empty
/// when the bytes do not begin with a byte-order mark.
struct Utf16Text {
    explicit Utf16Text(std::string_view bytes);

    bool marked = false;      // began with FE FF or FF FE
    bool big_endian = false;  // by the byte-order mark
    bool fills_bytes = true;  // no zero unit has ended it: it may have been cut there
    std::string_view units;   // two bytes each, without the mark

    size_t size() const { return units.size() / 2; }
    unsigned operator[](size_t index) const;  // one code unit
};

/// UTF-16 as UTF-8, cleaned as MediaInfoValid cleans a text without a mark, so that the same album is one
/// whatever its tags are written in.  A further U+FEFF at the begin is dropped, and with a text that fills
/// its bytes the first half of a pair at its end, which was cut; other unpaired surrogates become U+FFFD.
std::string Utf8FromUtf16(const Utf16Text& text);

/// Unmarked text as UTF-8; `room` is how many bytes fit into the field that it comes from, npos = it is from
/// none:
/// - valid UTF-8 is kept (Unicode, table 3-7: no overlong forms, no surrogates, nothing above U+10FFFF);
/// - when its only fault is an incomplete sequence at its very end, and a whole sequence of two or more bytes
///   stands before it, the text was cut: it loses that sequence;
/// - anything else is read in the charset in force (platform/host/tag_charset.h), which loses an incomplete
///   sequence at its end when the text fills its field, here or in an ID3v1 tag;
/// - what that does not have, all of it, is read as windows-1252, its five unassigned bytes as the C1
///   controls of the same number;
/// - U+FEFF at its begin is dropped.
/// Returns `text` or a part of it, or `*scratch` when the bytes had to be changed.  The result may be longer
/// than the field.
std::string_view Utf8FromUnmarked(std::string_view text, std::string* scratch,
                                  size_t room = std::string_view::npos);

/// The same of a field's text.
template <size_t N>
std::string_view FieldUtf8(const char (&field)[N], std::string* scratch) {
    return Utf8FromUnmarked(FieldText(field), scratch, N - 1);
}

/// Reads such text in `charset`, as above.  False when that does not have all of it; `utf8` then means
/// nothing.
bool Utf8FromCharset(const TagCharset& charset, std::string_view text, size_t room, std::string* utf8);

/// True for valid UTF-8, and for such text that was cut, as above.
bool IsUtf8Text(std::string_view text);

}  // namespace koli::host
