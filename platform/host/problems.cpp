#include "platform/host/problems.h"

#include <ctime>
#include <string>

#include "base/media_info.h"
#include "platform/host/database_groups.h"
#include "platform/host/file_times.h"
#include "platform/host/guard.h"
#include "platform/host/media_rebuild.h"
#include "platform/host/path_range.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr char kSave[] = R"(
INSERT INTO problem (path, time, reason, kind) VALUES (?1, ?2, ?3, ?4)
ON CONFLICT (path) DO UPDATE SET time = excluded.time, reason = excluded.reason, kind = excluded.kind
WHERE problem.reason <> excluded.reason)";
constexpr char kRemove[] = "DELETE FROM problem WHERE path = ?1";
constexpr char kRemoveOfStore[] = "DELETE FROM problem WHERE path = ?1 AND kind < 2";
constexpr char kRemoveOfPhotos[] = "DELETE FROM problem WHERE path = ?1 AND kind >= 2";
constexpr char kAny[] = "SELECT 1 FROM problem LIMIT 1";
static_assert(KOLI_PROBLEM_PHOTOS == 2);  // the higher bit

enum class Known { kNothing, kEmpty, kFilled };
Known table = Known::kNothing;

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

void Save(const char* path, std::string_view reason, int kind) {
    if ((kind & KOLI_PROBLEM_PHOTOS) == 0) RebuildNote(kRebuildProblem, path);
    table = Known::kFilled;
    SqlStatement* statement = MediaDatabase().Prepare(kSave);
    if (statement == nullptr) return;
    char now[sizeof MediaInfo::ctime];
    std::string scratch;
    WriteLocalTime(time(nullptr), now, sizeof now);
    statement->Text(1, path);
    statement->Text(2, now);
    statement->Text(3, Utf8FromUnmarked(reason, &scratch));
    statement->Integer(4, kind);
    MediaDatabase().Run(*statement);
}

/// Mostly there are none, and nothing is worth a statement for each file.
bool HasRows() {
    if (table == Known::kNothing) {
        const auto found = MediaDatabase().Query(kAny);
        if (found == nullptr) return false;
        table = found->count() > 0 ? Known::kFilled : Known::kEmpty;
    }
    return table == Known::kFilled;
}

}  // namespace

void ProblemBatchBegin() {
    table = Known::kNothing;
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

void ProblemForgetTable(const char* name) {
    MediaDatabase().Execute(std::string("DELETE FROM problem WHERE path IN (SELECT path FROM ") + name + ")");
}

}  // namespace koli::host

using namespace koli;
using namespace koli::host;

extern "C" {

void KOLIProblemSet(const char* path, const char* reason, int kind) {
    if (path == nullptr || *path == '\0' || reason == nullptr) return;
    Guarded(MediaDatabase(), [=] { Save(path, reason, kind); });
}

void KOLIProblemClear(const char* path, int kind) {
    Guarded(MediaDatabase(), [=] {
        if (path != nullptr && HasRows())
            RunOn((kind & KOLI_PROBLEM_PHOTOS) != 0 ? kRemoveOfPhotos : kRemoveOfStore, path);
    });
}

}  // extern "C"
