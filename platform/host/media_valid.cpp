// MediaInfoValid: what is cleaned in a record before it is saved.
#include <cmath>
#include <cstring>
#include <type_traits>

#include "base/media_fields.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

/// White space of Unicode (property White_Space), all of it in the basic plane.
bool IsWhiteSpace(unsigned unit) {
    return (unit >= 0x09 && unit <= 0x0D) || unit == 0x20 || unit == 0x85 || unit == 0xA0 || unit == 0x1680 ||
           (unit >= 0x2000 && unit <= 0x200A) || unit == 0x2028 || unit == 0x2029 || unit == 0x202F ||
           unit == 0x205F || unit == 0x3000;
}

bool HoldsOnlyWhiteSpace(const Utf16Text& text) {
    for (size_t i = 0; i < text.size(); ++i)
        if (!IsWhiteSpace(text[i])) return false;
    return true;
}

/// Control characters become blanks, blanks at both ends go.
template <size_t N>
void CleanUnmarked(char (&field)[N]) {
    const size_t length = FieldText(field).size();
    size_t begin = N, end = 0;  // of what is left
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(field[i]);
        if (byte < 0x20 || byte == 0x7F) field[i] = ' ';
        if (field[i] == ' ') continue;
        if (begin == N) begin = i;
        end = i + 1;
    }
    const size_t left = begin < end ? end - begin : 0;
    if (left > 0) memmove(field, field + begin, left);
    memset(field + left, 0, N - left);
}

struct RecordCleaner {
    /// A mark on a text without a byte-order mark counts as none, here as in the save.
    template <size_t N>
    void operator()(const MediaField<char[N]>& field) {
        if ((field.rules & kFieldIsCleaned) == 0) return;
        char(&text)[N] = record.*field.member;
        const bool is_utf16 = field.utf16 != nullptr && record.*field.utf16 == 1;
        const Utf16Text utf16(is_utf16 ? std::string_view(text, N) : std::string_view());
        if (!utf16.marked) {
            CleanUnmarked(text);
        } else if (HoldsOnlyWhiteSpace(utf16)) {
            memset(text, 0, N);
            record.*field.utf16 = 0;
        }
    }
    void operator()(const MediaField<BeFloat>& field) {
        const float value = record.*field.member;
        if (!std::isfinite(value) || value < 0) record.*field.member = 0.0F;
    }
    template <typename Number>
    void operator()(const MediaField<Number>& field) {
        if constexpr (std::is_same_v<Number, BeInt32>)
            if ((field.rules & kFieldIsCleaned) != 0 && record.*field.member < 0) record.*field.member = 0;
    }

    MediaInfo& record;
};

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" int MediaInfoValid(koli::MediaInfo* record) {
    if (record == nullptr) return -1;
    koli::EachMediaField(RecordCleaner{*record});
    return 0;
}
