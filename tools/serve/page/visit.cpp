#include "tools/serve/page/visit.h"

#include "base/parse_number.h"
#include "tools/serve/page/notice_pages.h"

namespace koli::serve {

Span Visit::Piece(size_t count) const {
    Span span{0, count};
    const std::string& from = Value("from");
    constexpr size_t kDigits = 9;  // more rows than that has no library
    if (!from.empty() && from.size() <= kDigits && from.find_first_not_of("0123456789") == std::string::npos)
        span.from = std::stoul(from);
    return span;
}

std::optional<std::string> Visit::WordAt(size_t place) const {
    return place < request.path.size() ? Unescaped(request.path[place]) : std::nullopt;
}

Markup NothingNote(const Visit& visit, std::string_view sentence, std::string_view advice) {
    const std::string error = visit.library.Error();
    if (error.empty()) return NoteOf(sentence, advice);
    return NoteOf(
        "The library cannot be shown: " + error,
        "Once that is mended, load the page again. On the machine itself \"koliindexctl status\" tells more.");
}

Reply MissingPage(const Visit& visit) {
    const std::string error = visit.library.Error();
    if (error.empty()) return ErrorPage(404, "The library has nothing at this address.");
    return ErrorPage(503, ("The library cannot be shown: " + error).c_str());
}

}  // namespace koli::serve
