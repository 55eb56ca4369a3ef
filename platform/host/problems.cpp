#include "platform/host/problems.h"

#include <cctype>
#include <cstring>
#include <ctime>
#include <string>

#include "base/log.h"
#include "base/media_info.h"
#include "base/path_names.h"
#include "platform/host/database_groups.h"
#include "platform/host/file_times.h"
#include "platform/host/media_rebuild.h"
#include "platform/host/path_range.h"
#include "platform/host/text_utf8.h"

namespace koli::host {
namespace {

constexpr const char kSave[] =
    "INSERT INTO problem (path, time, reason) VALUES (?1, ?2, ?3) ON CONFLICT (path) DO UPDATE SET"
    " time = excluded.time, reason = excluded.reason WHERE problem.reason <> excluded.reason";
constexpr const char kRemove[] = "DELETE FROM problem WHERE path = ?1";
constexpr const char kNoReason[] = "Metadata could not be parsed.";

char saved_path[kPathSize];  // the file saved last, until its event or the next operation; '' = none

/// The text of a log line without its module and line number, which stand in front in several forms:
/// "m (12) ", "m:12 ", "m(12): ", "(m, 12) ".
const char* WithoutPrefix(const char* line) {
    constexpr size_t kPrefixMax = 64;
    for (size_t at = 1; at < strnlen(line, kPrefixMax); ++at) {
        if (isdigit(static_cast<unsigned char>(line[at])) == 0 || strchr("( :", line[at - 1]) == nullptr)
            continue;
        const size_t end = at + strspn(line + at, "0123456789");
        return line + end + strspn(line + end, "):, -");
    }
    return line;
}

void RunOn(const char* text, const char* path) {
    SqlStatement* statement = MediaDatabase().Prepare(text);
    if (statement == nullptr) return;
    statement->Text(1, path);
    MediaDatabase().Run(*statement);
}

const char* RemoveBelowSql() {
    static const auto* const text = new std::string(std::string("DELETE FROM problem WHERE ") + kPathRange);
    return text->c_str();
}

void Save(const char* path, const char* line) {
    RebuildNote(kRebuildProblem, path);
    SqlStatement* statement = MediaDatabase().Prepare(kSave);
    if (statement == nullptr) return;
    char now[sizeof MediaInfo::ctime];
    std::string scratch;
    WriteLocalTime(time(nullptr), now, sizeof now);
    statement->Text(1, path);
    statement->Text(2, now);
    statement->Text(3, *line != '\0' ? Utf8FromUnmarked(WithoutPrefix(line), &scratch) : kNoReason);
    MediaDatabase().Run(*statement);
}

}  // namespace

void ProblemSaved(const char* path) {
    CopyText(saved_path, sizeof saved_path, path);
}

void ProblemRaised(const char* path) {
    if (strcmp(path, saved_path) == 0) saved_path[0] = '\0';
    ProblemSettle();
    Save(path, LogFirst());
}

void ProblemSettle() {
    if (saved_path[0] == '\0') return;
    RunOn(kRemove, saved_path);
    saved_path[0] = '\0';
}

void ProblemForget(const char* path) {
    RunOn(kRemove, path);
}

void ProblemForgetBelow(const char* path) {
    SqlStatement* statement = MediaDatabase().Prepare(RemoveBelowSql());
    if (statement == nullptr) return;
    BindPathRange(*statement, path);
    MediaDatabase().Run(*statement);
}

void ProblemForgetTable(const char* table) {
    ProblemSettle();
    MediaDatabase().Execute(std::string("DELETE FROM problem WHERE path IN (SELECT path FROM ") + table +
                            ")");
}

}  // namespace koli::host
