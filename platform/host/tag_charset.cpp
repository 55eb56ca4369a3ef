#include "platform/host/tag_charset.h"

#include <algorithm>
#include <cerrno>

#include "base/log.h"
#include "platform/koliindex.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr size_t kNameMax = 40;  // bytes; none that iconv knows is longer

std::unique_ptr<TagCharset>& InForce() {
    static auto* const charset = new std::unique_ptr<TagCharset>;  // never destroyed: the process may end at
    return *charset;                                               // any instant
}

/// A name, and not a way to tell iconv how to convert ("CP1251//IGNORE").
bool IsCharsetName(std::string_view name) {
    const auto is_usual = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
               c == '_' || c == '.' || c == ':' || c == '+';
    };
    return !name.empty() && name.size() <= kNameMax && std::ranges::all_of(name, is_usual);
}

void ReplaceAll(std::string* text, const std::string& what, char by) {
    for (size_t at = 0; (at = text->find(what, at)) != std::string::npos; ++at)
        text->replace(at, what.size(), 1, by);
}

}  // namespace

std::unique_ptr<TagCharset> TagCharset::Open(const std::string& name, std::string* refusal) {
    const iconv_t refused = iconv_t(-1);  // NOLINT(performance-no-int-to-ptr)
    const iconv_t decoder = IsCharsetName(name) ? iconv_open("UTF-8", name.c_str()) : refused;
    if (decoder == refused) {
        *refusal = "is not known";
        return nullptr;
    }
    std::unique_ptr<TagCharset> charset(new TagCharset(name, decoder));
    if (charset->KeepsAscii()) return charset;
    *refusal = "is none in which ASCII means itself";
    return nullptr;
}

/// Asks for each character alone.  A backslash and a tilde may be a currency sign and an overline, which are
/// turned back; a control character that says how to go on gives nothing.
bool TagCharset::KeepsAscii() {
    std::string text;
    for (char byte = 1; byte > 0 && byte < 0x7F; ++byte) {
        if (Decode(std::string_view(&byte, 1), &text) != Outcome::kWhole) return false;
        if (text.size() == 1 && text[0] == byte) continue;
        const auto replaced =
            std::ranges::find_if(replaced_, [byte](const Replaced& each) { return each.byte == byte; });
        if (replaced == std::end(replaced_) || text.size() < 2) return false;
        replaced->text = text;
    }
    return true;
}

TagCharset::Outcome TagCharset::Decode(std::string_view text, std::string* utf8) const {
    iconv(decoder_, nullptr, nullptr, nullptr, nullptr);
    utf8->resize(text.size() * 3 + 16);
    char* in = const_cast<char*>(text.data());  // which iconv does not write to
    size_t in_left = text.size(), used = 0;
    // The last call hands out a character that might have been combined with the next one.
    for (bool is_fed = false;;) {
        char* out = utf8->data() + used;
        size_t out_left = utf8->size() - used;
        const size_t result = iconv(decoder_, is_fed ? nullptr : &in, &in_left, &out, &out_left);
        const int error = result == size_t(-1) ? errno : 0;
        used = utf8->size() - out_left;
        if (error == E2BIG) {
            utf8->resize(utf8->size() * 2);  // a few characters for a byte at most
        } else if (error != 0 && error != EINVAL) {
            return Outcome::kWrong;
        } else if (is_fed) {
            break;
        } else {
            is_fed = true;
        }
    }
    utf8->resize(used);
    for (const Replaced& each : replaced_)
        if (!each.text.empty()) ReplaceAll(utf8, each.text, each.byte);
    return in_left > 0 ? Outcome::kCut : Outcome::kWhole;
}

const TagCharset* TagCharsetInForce() {
    return InForce().get();
}

}  // namespace koli::host

using namespace koli::host;

extern "C" {

int KOLITagCharsetSet(const char* name) {
    try {
        InForce().reset();
        if (name == nullptr || *name == '\0') return 0;
        std::string refusal;
        InForce() = TagCharset::Open(name, &refusal);
        if (InForce() != nullptr) return 0;
        KOLI_LOG("The charset [%s] %s: texts are read as windows-1252.", name, refusal.c_str());
    } catch (const std::bad_alloc&) {
        KOLI_LOG("No memory for the charset [%s]: texts are read as windows-1252.", name);
    }
    return -1;
}

int BlKOLITagCharsetIsSet(void) {
    return TagCharsetInForce() != nullptr ? 1 : 0;
}

}  // extern "C"
