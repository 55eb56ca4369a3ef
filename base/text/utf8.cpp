#include "base/text/utf8.h"

namespace koli {

// Unicode, table 3-7.
size_t Utf8Length(std::string_view text) {
    const auto byte = [text](size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const auto tail = [&byte](size_t i) { return (byte(i) & 0xC0) == 0x80; };
    const unsigned first = byte(0), second = byte(1);
    if (text.empty()) return 0;
    if (first < 0x80) return 1;
    if (first >= 0xC2 && first <= 0xDF) return tail(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        const bool fits = (first != 0xE0 || second >= 0xA0) && (first != 0xED || second < 0xA0);
        return fits && tail(1) && tail(2) ? 3 : 0;
    }
    if (first < 0xF0 || first > 0xF4) return 0;
    const bool fits = (first != 0xF0 || second >= 0x90) && (first != 0xF4 || second < 0x90);
    return fits && tail(1) && tail(2) && tail(3) ? 4 : 0;
}

}  // namespace koli
