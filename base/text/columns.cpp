#include "base/text/columns.h"

#include <utf8proc.h>

namespace koli {
namespace {

/// Vowels and finals of Hangul, as letters in pieces have them (names that come from Macs): the library takes
/// them for letters of their own.
bool IsJoiningJamo(utf8proc_int32_t code) {
    return (code >= 0x1160 && code <= 0x11FF) || (code >= 0xD7B0 && code <= 0xD7FF);
}

}  // namespace

size_t CharacterColumns(std::string_view text, size_t* columns) {
    utf8proc_int32_t code = 0;
    const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                         static_cast<utf8proc_ssize_t>(text.size()), &code);
    *columns = 1;
    if (length <= 0) return 1;
    if (IsJoiningJamo(code))
        *columns = 0;
    else if (utf8proc_category(code) != UTF8PROC_CATEGORY_CC)
        *columns = static_cast<size_t>(utf8proc_charwidth(code));
    return static_cast<size_t>(length);
}

}  // namespace koli
