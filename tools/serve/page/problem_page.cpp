// What could not be read, by reason.
#include <map>

#include "tools/serve/page/live.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

constexpr size_t kProblems = 500;

using Groups = std::map<std::string, std::vector<const ProblemRow*>>;

void AddGroup(const std::string& reason, const std::vector<const ProblemRow*>& rows, Markup& main) {
    main << "<section class=\"block\"><div class=\"head\"><h2 dir=\"auto\">";
    main.Name(reason.empty() ? "Of no known reason" : Begun(reason)) << "</h2><span class=\"muted\">";
    main.Text(GroupedCount(static_cast<int64_t>(rows.size()), "file")) << "</span></div><ul class=\"list\">";
    for (const ProblemRow* row : rows) {
        main << "<li><a";
        main.Link("href", EntryAddress(row->path)) << ">";
        main.Name(row->path) << "</a> <span class=\"count small\">";
        main.Text(row->time) << "</span></li>";
    }
    main << "</ul></section>";
}

/// What concerns more than one file.
void AddTroubles(const Visit& visit, Markup& main) {
    const ctl::StatusLook look = visit.library.Live();
    if (look.batch.kind == ctl::BatchState::kKept)
        main << NoteOf("The daemon keeps a batch of requests: " + KeptText(look.batch),
                       "It tries again at " + ctl::TimeText(look.batch.retry) + ".");
    for (const FolderEntry& share : visit.library.Folder("/", {}).rows)
        if (Library::IsAway(share.path)) main << AwayNote(share.path);
}

}  // namespace

Reply ProblemsPage(const Visit& visit) {
    const Span span = visit.Piece(kProblems);
    const auto problems = visit.library.Problems(span);
    Markup main = visit.NewMarkup();
    AddHeading("Problems", GroupedCount(static_cast<int64_t>(problems.total), "file"), main);
    AddTroubles(visit, main);
    if (problems.total == 0) {
        main << NothingNote(visit, "Every file in the library could be read.", "");
    } else {
        Groups groups;
        for (const ProblemRow& row : problems.rows)
            groups[row.reason].push_back(&row);
        main
            << "<p class=\"muted\">These files are in the library by their names, but what is in them could not "
               "be read. On the machine itself <code>koliindexctl why FILE</code> tells more of one, and "
               "<code>koliindexctl sync</code> has those read again that may have been mended.</p>"
               "<div class=\"block\" id=\"list\">";
        for (const auto& [reason, rows] : groups)
            AddGroup(reason, rows, main);
        main << "</div>";
        AddMore(span, problems.total, Address("/problems"), main);
    }
    return PageReply(visit.Head(TitleOf({"Problems", FromText(span)}), Area::kProblems), main);
}

}  // namespace koli::serve
