// MediaInfoValid: what is cleaned in a record before it is saved.
#include <cmath>
#include <cstring>

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

/// A mark on a text without a byte-order mark counts as none, here as in the save.
template <size_t N>
void CleanText(char (&field)[N], BeInt32* utf16) {
    const Utf16Text text(*utf16 == 1 ? std::string_view(field, N) : std::string_view());
    if (!text.marked) {
        CleanUnmarked(field);
    } else if (HoldsOnlyWhiteSpace(text)) {
        memset(field, 0, N);
        *utf16 = 0;
    }
}

void CleanNumber(BeInt32* number) {
    if (*number < 0) *number = 0;
}

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" int MediaInfoValid(koli::MediaInfo* record) {
    if (record == nullptr) return -1;
    CleanText(record->title, &record->title_utf16);
    CleanText(record->artist, &record->artist_utf16);
    CleanText(record->album, &record->album_utf16);
    CleanText(record->genre, &record->genre_utf16);
    CleanText(record->composer, &record->composer_utf16);
    CleanText(record->comment, &record->comment_utf16);
    const float duration = record->duration;
    if (!std::isfinite(duration) || duration < 0) record->duration = 0.0F;
    CleanNumber(&record->track);
    CleanNumber(&record->disc);
    CleanNumber(&record->year);
    return 0;
}
