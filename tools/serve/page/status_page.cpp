// The daemon at work.
#include <ctime>

#include "tools/ctl/progress.h"
#include "tools/serve/page/live.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

void AddField(const char* name, std::string_view value, Markup& to) {
    if (value.empty()) return;
    to << "<dt>";
    to.Text(name) << "</dt><dd>";
    to.Name(value) << "</dd>";
}

/// What the daemon is at, in a few words that change seldom.
std::string StateText(const ctl::StatusLook& look) {
    if (look.batch.kind == ctl::BatchState::kKept)
        return "A batch of requests is kept: " + KeptText(look.batch);
    if (look.pid == 0) return "The daemon does not run";
    if (look.IsAtWork() || look.batch.kind == ctl::BatchState::kRunning) return "The daemon is at work";
    if (look.waiting > 0) return "Requests wait for the daemon";
    return "The daemon has nothing to do";
}

void AddWork(const ctl::StatusLook& look, Markup& to) {
    if (!look.IsAtWork()) return;
    const WorkReport& report = look.report;
    to << "<progress aria-label=\"Requests done\"";
    // One request may be a whole share: before the first is done nobody knows how far it is.
    if (report.lines_done > 0) to.Attribute("max", report.lines).Attribute("value", report.lines_done);
    to << "></progress><p class=\"small muted\">";
    to.Text(Grouped(report.lines_done) + " of " + GroupedCount(report.lines, "request") + ", " +
            GroupedCount(report.files, "file") +
            (report.problems > 0 ? ", " + GroupedCount(report.problems, "problem") : "") +
            ctl::RateText(look.FilesPerSecond()))
        << "</p>";
    if (report.path[0] != '\0') to << "<p class=\"small\" dir=\"auto\">", to.Name(report.path) << "</p>";
}

void AddLastProblem(const ctl::StatusLook& look, Markup& to) {
    if (!look.is_reported || look.report.problem_time == 0) return;
    AddField("Last problem", look.report.problem_path, to);
    AddField("Its reason", look.report.problem_reason, to);
    AddField("Met at", ctl::TimeText(look.report.problem_time / 1000), to);
}

/// Nothing of a daemon that has nothing to do.
void AddFields(const ctl::StatusLook& look, Markup& to) {
    const bool is_kept = look.batch.kind == ctl::BatchState::kKept;
    if (!look.IsAtWork() && !is_kept && look.waiting <= 0) return;
    to << "<dl class=\"fields small\">";
    if (look.IsAtWork()) AddField("Batch since", ctl::TimeText(look.report.batch_begun / 1000), to);
    if (look.waiting >= 0) AddField("Waiting", GroupedCount(look.waiting, "request"), to);
    if (is_kept) {
        AddField("Kept since", ctl::TimeText(look.batch.since), to);
        AddField("Next attempt", ctl::TimeText(look.batch.retry), to);
    }
    if (look.IsAtWork()) AddLastProblem(look, to);
    to << "</dl>";
}

void AddDaemon(const Visit& visit, Markup& to) {
    const ctl::StatusLook look = visit.library.Live();
    to << "<h2>The daemon</h2><dl class=\"fields short\">";
    AddField("State", look.pid > 0 ? "running" : "not running", to);
    AddField("Since", ctl::TimeText(look.since), to);
    if (look.is_reported) {
        AddField("Batches done", Grouped(look.report.all_batches), to);
        AddField("Requests done", Grouped(look.report.all_lines), to);
        AddField("Files looked at", Grouped(look.report.all_files), to);
        AddField("With problems", Grouped(look.report.all_problems), to);
        if (!look.IsAtWork()) AddLastProblem(look, to);
    }
    to << "</dl><h2>Watched folders</h2>";
    const ctl::Record watched = ctl::WatchedTexts(look);
    if (watched.empty()) {
        to << NoteOf("No folder is watched.",
                     "\"koliindexctl watch FOLDER\" keeps one in step with the library.");
        return;
    }
    to << "<ul class=\"list\">";
    for (const auto& [name, field] : watched)
        to << "<li>", to.Name(field.text) << "</li>";
    to << "</ul>";
}

void AddTotals(const Visit& visit, Markup& to) {
    const Totals totals = visit.library.Counts();
    const std::pair<const char*, size_t> fields[] = {{"Songs", totals.songs},
                                                     {"Albums", totals.albums},
                                                     {"Artists", totals.artists},
                                                     {"Genres", totals.genres},
                                                     {"Films", totals.films},
                                                     {"Pictures", totals.pictures},
                                                     {"Photo albums", totals.photo_albums},
                                                     {"Playlists", totals.playlists},
                                                     {"Problems", totals.problems}};
    to << "<h2>The library</h2><dl class=\"fields short\">";
    for (const auto& [name, count] : fields)
        AddField(name, Grouped(static_cast<int64_t>(count)), to);
    to << "</dl>";
}

}  // namespace

std::string KeptText(const ctl::BatchState& batch) {
    return batch.database + (batch.database.empty() ? "" : ": ") + batch.reason;
}

void AddLive(const Visit& visit, Markup& to) {
    const ctl::StatusLook look = visit.library.Live();
    const std::string state = StateText(look);
    if (look.IsAtWork())
        to << "<section class=\"panel at-work\" aria-label=\"The daemon now\"";
    else
        to << "<section class=\"panel\" aria-label=\"The daemon now\"";
    if (!visit.is_kept) {
        to << " id=\"live\"";
        to.Attribute("data-state", state).Link("data-live", Address("/status"));
    }
    to << "><p class=\"state\"><a";
    to.Link("href", Address("/status")) << ">";
    to.Text(state) << "</a></p>";
    if (visit.is_kept)
        to << "<p class=\"muted small\">", to.Text("On " + ctl::TimeText(time(nullptr))) << "</p>";
    AddWork(look, to);
    AddFields(look, to);
    to << "</section>";
}

Reply StatusPage(const Visit& visit) {
    Markup main = visit.NewMarkup();
    AddHeading("Status", "", main);
    AddLive(visit, main);
    main << "<div class=\"block\"";
    if (!visit.is_kept) main << " id=\"numbers\"", main.Link("data-live", Address("/status"));
    main << ">";
    AddTotals(visit, main);
    AddDaemon(visit, main);
    main << "</div>";
    return PageReply(visit.Head("Status", Area::kStatus), main);
}

}  // namespace koli::serve
