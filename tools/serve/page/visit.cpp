#include "tools/serve/page/visit.h"

#include "tools/serve/page/live.h"
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

PageHead Visit::Head(std::string title, Area area, const char* tab) const {
    return {
        .title = std::move(title), .area = area, .trouble = library.Error(), .tab = tab, .is_kept = is_kept};
}

std::string FromText(Span span) {
    return span.from == 0 ? "" : "from " + std::to_string(span.from + 1) + " on";
}

Markup NothingNote(const Visit& visit, std::string_view sentence, std::string_view advice) {
    return visit.library.Error().empty() ? NoteOf(sentence, advice) : Markup();
}

Markup EmptyNote(const Visit& visit, std::string_view sentence, std::string_view advice) {
    const ctl::StatusLook look = visit.library.Live();
    if (look.batch.kind == ctl::BatchState::kKept)
        return NothingNote(visit, sentence, "The daemon keeps a batch of requests: " + KeptText(look.batch));
    if (look.IsAtWork() || look.waiting > 0)
        return NothingNote(visit, sentence, "The daemon has requests: there may be some soon.");
    return NothingNote(visit, sentence, advice);
}

Reply MissingPage(const Visit& visit) {
    const std::string error = visit.library.Error();
    if (error.empty()) return ErrorPage(404, "The library has nothing at this address.");
    return ErrorPage(503, ("The library cannot be shown: " + error).c_str());
}

}  // namespace koli::serve
