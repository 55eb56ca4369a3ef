#include "tools/ctl/submit.h"

#include <cstdio>

#include "tools/ctl/batch_wait.h"
#include "tools/ctl/membership.h"
#include "tools/ctl/output.h"
#include "tools/ctl/progress.h"
#include "tools/ctl/queue_service.h"
#include "tools/ctl/wait_interrupt.h"
#include "tools/ctl/wait_result.h"

namespace koli::ctl {
namespace {

constexpr size_t kNamesShown = 5;

const char* WakeName(Wake wake) {
    switch (wake) {
        case Wake::kWoken:
            return "woken";
        case Wake::kNotRunning:
            return "not running";
        case Wake::kNotPermitted:
            return "not permitted";
    }
    return "";
}

/// One line that says that the requests wait, and the exit code.
int TellUnwoken(const Context& context, Wake wake) {
    const char* queue = context.places.queue.c_str();
    if (wake == Wake::kNotRunning)
        Complain("the daemon is not running; the requests wait in %s until it starts", queue);
    else
        Complain("no permission to wake the daemon%s; the requests wait in %s for the next signal",
                 JoinHint(context.places.service).c_str(), queue);
    return kExitNoDaemon;
}

int TellUnfinished(BatchEnd end) {
    if (end == BatchEnd::kNoDaemon) {
        Complain("the daemon has ended before the requests were done; they are kept for its next start");
        return kExitNoDaemon;
    }
    Complain("the requests are not done yet; the daemon goes on with them (see koliindexctl status)");
    return kExitDifferences;
}

void PrintNames(const char* what, const std::vector<std::string>& names, int64_t count) {
    for (size_t i = 0; i < names.size() && i < kNamesShown; ++i)
        printf("  %s: %s\n", what, Printable(names[i]).c_str());
    if (count > static_cast<int64_t>(kNamesShown))
        printf("  %s: %lld more\n", what,
               static_cast<long long>(count) - static_cast<long long>(kNamesShown));
}

void PrintResult(const WaitResult& result, const Submission& submission) {
    const auto stored = static_cast<long long>(result.files - result.missing_count);
    if (submission.present.empty())
        printf("%s done.\n", Counted(submission.requests, "request").c_str());
    else
        printf("%s done: %lld of %s stored, %lld unparsable.\n",
               Counted(submission.requests, "request").c_str(), stored, Counted(result.files, "file").c_str(),
               static_cast<long long>(result.unparsable_count));
    PrintNames("not stored", result.missing, result.missing_count);
    PrintNames("unparsable", result.unparsable, result.unparsable_count);
    if (result.still_stored > 0) printf("  still stored: %s\n", Counted(result.still_stored, "row").c_str());
}

/// In one line, for who has not asked for the result itself.
void ComplainOfResult(const WaitResult& result) {
    const std::vector<std::string>& names = result.missing.empty() ? result.unparsable : result.missing;
    Complain("%s not stored, %lld unparsable, %s still stored%s%s",
             Counted(result.missing_count, "file").c_str(), static_cast<long long>(result.unparsable_count),
             Counted(result.still_stored, "row").c_str(), names.empty() ? "" : ": ",
             names.empty() ? "" : names.front().c_str());
}

Section Names(const char* name, const std::vector<std::string>& paths) {
    Section section{name};
    for (const std::string& path : paths)
        section.records.push_back({{"path", path}});
    return section;
}

void PrintResultJson(const WaitResult& result, const Submission& submission) {
    const Record summary{{"requests", submission.requests},
                         {"files", result.files},
                         {"stored", result.files - result.missing_count},
                         {"not_stored", result.missing_count},
                         {"unparsable", result.unparsable_count},
                         {"still_stored", result.still_stored}};
    std::vector<Section> sections{{"summary", {summary}, true},
                                  Names("not_stored", result.missing),
                                  Names("unparsable", result.unparsable)};
    sections.insert(sections.end(), submission.told.begin(), submission.told.end());
    PrintSections(sections, true);
}

int Finish(const Context& context, const Submission& submission, const WaitOptions& options) {
    const WaitResult result = WaitResultOf(context, submission);
    if (!result.error.empty()) {
        Complain("%s", result.error.c_str());
        return kExitDatabase;
    }
    if (context.json)
        PrintResultJson(result, submission);
    else
        PrintResult(result, submission);
    const bool is_incomplete = result.missing_count > 0 || result.still_stored > 0 ||
                               (options.strict && result.unparsable_count > 0);
    if (is_incomplete && context.quiet) ComplainOfResult(result);
    return is_incomplete ? kExitDifferences : kExitDone;
}

int Wait(const Context& context, const QueuedBatch& batch, const Submission& submission,
         const WaitOptions& options) {
    BatchEnd end{};
    {
        const WaitInterrupt interrupt;
        Progress progress(context, batch, FilesFound(submission));
        const WaitLimits limits{.timeout = options.timeout};
        end = BatchWait(batch.file, context.places, limits, [&](bool begun) {
            if (!context.quiet) progress.Tell(begun);
        });
    }
    if (end != BatchEnd::kExecuted) return TellUnfinished(end);
    return Finish(context, submission, options);
}

}  // namespace

int Submit(const Context& context, const Submission& submission, const WaitOptions& options) {
    const auto [batch, wake] = QueueSubmit(context.places, submission.lines);
    if (!batch.error.empty()) {
        Complain("cannot queue the requests in %s: %s", context.places.queue.c_str(), batch.error.c_str());
        return kExitFiles;
    }
    if (wake == Wake::kWoken && options.wait && batch.file.valid())
        return Wait(context, batch, submission, options);
    if (context.json)
        PrintObject({{"requests", submission.requests}, {"daemon", WakeName(wake)}}, submission.told);
    else
        printf("%s queued.\n", Counted(submission.requests, "request").c_str());
    return wake == Wake::kWoken ? static_cast<int>(kExitDone) : TellUnwoken(context, wake);
}

}  // namespace koli::ctl
