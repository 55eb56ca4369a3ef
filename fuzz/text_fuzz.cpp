// Texts of tags in any charset that can be set: what is stored is UTF-8 that holds no more than its text. The
// first byte picks the charset, the second one the size of the field.
#include <cstdlib>
#include <memory>

#include "platform/host/text_utf8.h"
#include "platform/koliindex.h"

using namespace koli::host;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const char* const kNames[] = {
        "CP1251", "KOI8-R", "GB18030",      "BIG5-HKSCS", "SHIFT_JIS", "EUC-JP", "EUC-KR", "JOHAB",
        "CP1255", "CP1258", "EUC-JISX0213", "ISO-8859-7", "TCVN",      "VISCII", "EUC-TW", ""};
    if (size < 2) return 0;
    static int in_force = -1;
    if (in_force != data[0] % 16) KOLITagCharsetSet(kNames[in_force = data[0] % 16]);
    const std::string_view text(reinterpret_cast<const char*>(data) + 2, size - 2);
    std::string scratch, again;
    const std::string stored(Utf8FromUnmarked(text, &scratch, data[1]));
    if (stored.size() > 8 * text.size()) abort();
    if (Utf8FromUnmarked(stored, &again) != stored && !IsUtf8Text(text)) abort();
    if (IsUtf8Text(text) && !text.starts_with(stored)) abort();
    const Utf16Text utf16(text);
    if (!IsUtf8Text(Utf8FromUtf16(utf16))) abort();
    return 0;
}
