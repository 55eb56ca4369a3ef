#include "tools/ctl/terminal.h"

#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "base/text/columns.h"

namespace koli::ctl {
namespace {

struct Character {
    std::string_view bytes;
    size_t columns;
};

std::vector<Character> CharactersOf(std::string_view text) {
    std::vector<Character> characters;
    for (size_t length = 0; !text.empty(); text.remove_prefix(length)) {
        size_t columns = 0;
        length = CharacterColumns(text, &columns);
        characters.push_back({text.substr(0, length), columns});
    }
    return characters;
}

size_t SumOf(const std::vector<Character>& characters) {
    size_t columns = 0;
    for (const Character& character : characters)
        columns += character.columns;
    return columns;
}

/// As many characters as have room, from one end.
template <typename Iterator>
size_t CountFitting(Iterator begin, Iterator end, size_t columns) {
    size_t count = 0;
    for (; begin != end && begin->columns <= columns; ++begin, ++count)
        columns -= begin->columns;
    return count;
}

/// Both ends of a text, of so many columns each, when it has more than both and the ellipsis.
std::string Cut(std::string_view text, size_t columns, size_t head_parts, size_t parts) {
    const std::vector<Character> characters = CharactersOf(text);
    if (SumOf(characters) <= columns) return std::string(text);
    const std::string ellipsis = HasUtf8() ? "\u2026" : "...";
    const size_t taken = ColumnsOf(ellipsis);
    if (columns <= taken) return std::string(columns, '.');
    const size_t head = (columns - taken) * head_parts / parts;
    const size_t first = CountFitting(characters.begin(), characters.end(), head);
    size_t last = CountFitting(characters.rbegin(), characters.rend(), columns - taken - head);
    // What has no width belongs to the character before it, which is gone.
    while (last > 0 && characters[characters.size() - last].columns == 0)
        --last;
    std::string cut;
    for (size_t i = 0; i < first; ++i)
        cut += characters[i].bytes;
    cut += ellipsis;
    for (size_t i = characters.size() - last; i < characters.size(); ++i)
        cut += characters[i].bytes;
    return cut;
}

}  // namespace

TerminalSize TerminalSizeOf(int fd) {
    TerminalSize size;
    winsize window{};
    if (ioctl(fd, TIOCGWINSZ, &window) != 0) return size;
    if (window.ws_col > 0) size.columns = window.ws_col;
    if (window.ws_row > 0) size.rows = window.ws_row;
    return size;
}

bool IsDrawable(int fd) {
    const char* kind = getenv("TERM");
    return isatty(fd) == 1 && kind != nullptr && *kind != '\0' && strcmp(kind, "dumb") != 0;
}

bool HasUtf8() {
    static const bool has_utf8 = [] {
        const locale_t own = newlocale(LC_CTYPE_MASK, "", nullptr);
        if (own == nullptr) return false;
        const bool is_utf8 = strcmp(nl_langinfo_l(CODESET, own), "UTF-8") == 0;
        freelocale(own);
        return is_utf8;
    }();
    return has_utf8;
}

size_t ColumnsOf(std::string_view text) {
    if (std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; })) return text.size();
    return SumOf(CharactersOf(text));
}

std::string CutMiddle(std::string_view text, size_t columns) {
    return Cut(text, columns, 1, 3);
}

std::string CutEnd(std::string_view text, size_t columns) {
    return Cut(text, columns, 1, 1);
}

std::string Bar(int64_t part, int64_t whole, size_t columns) {
    if (columns < 3) return "";
    const auto room = static_cast<double>(columns - 2);
    const double share = whole > 0 ? static_cast<double>(part) / static_cast<double>(whole) : 0;
    const auto filled = static_cast<size_t>(std::clamp(share, 0.0, 1.0) * room);
    std::string bar = "[";
    for (size_t i = 0; i < columns - 2; ++i)
        bar += i < filled ? (HasUtf8() ? "\u2588" : "#") : (HasUtf8() ? "\u2591" : ".");
    return bar + "]";
}

}  // namespace koli::ctl
