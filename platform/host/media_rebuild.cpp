#include "platform/host/media_rebuild.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <functional>
#include <iterator>
#include <new>
#include <string>
#include <vector>

#include "base/log.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/path_range.h"
#include "platform/host/table_marks.h"
#include "platform/kolidb.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";
constexpr int kPageRows = 1000;       // looked at at a time
constexpr size_t kMissedMax = 10000;  // paths; with more, nothing is removed

struct Table {
    const char* name;
    const char* remove;
};
constexpr Table kTables[] = {
    {"music", "DELETE FROM music WHERE path = ?1"},
    {"video", "DELETE FROM video WHERE path = ?1"},
    {"photo", "DELETE FROM photo WHERE path = ?1"},
    {"playlist", "DELETE FROM playlist WHERE path = ?1"},
    {"directory", "DELETE FROM directory WHERE path = ?1"},
    {"problem", "DELETE FROM problem WHERE path = ?1 AND kind < 2"},  // not those of the photo library
};

std::string Quoted(std::string_view text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted.append(c == '\'' ? 2 : 1, c);
    return quoted + "'";
}

/// Whether `path` or a folder above it is among the sorted `folders`.
bool LiesInOneOf(const std::vector<std::string>& folders, std::string_view path) {
    for (size_t end = path.size(); end != 0 && end != std::string_view::npos; end = path.rfind('/', end - 1))
        if (std::binary_search(folders.begin(), folders.end(), path.substr(0, end))) return true;
    return std::binary_search(folders.begin(), folders.end(), std::string_view());  // the root
}

uint64_t HashOf(std::string_view path) {
    return std::hash<std::string_view>{}(path);
}
uint64_t NoteOf(int table, std::string_view path) {
    constexpr uint64_t kSpread = 0x9E3779B97F4A7C15U;
    return HashOf(path) ^ (static_cast<uint64_t>(table) + 1) * kSpread;
}

class Rebuild {
  public:
    void Open() { is_open_ = true; }
    void Close() { *this = Rebuild(); }
    bool is_noting() const { return is_open_ && !is_given_up_; }
    void Begin(std::string_view path);
    void Note(int table, std::string_view path);
    void Miss(std::string_view path);
    void GiveUp();
    bool SavedLast(std::string_view path) const { return !saved_.empty() && last_ == HashOf(path); }
    int End(bool is_certain);

  private:
    int RemoveStale();
    int RemoveStale(int table);
    bool IsStale(int table, std::string_view path) const;
    std::string RangeOf(const std::string& from) const;

    bool is_open_ = false;
    bool is_given_up_ = false;
    std::string top_;             // without a slash at its end
    std::deque<uint64_t> saved_;  // notes, unsorted until End; grows without a copy
    uint64_t last_ = 0;           // the path saved last
    std::vector<std::string> missed_;
};

Rebuild& TheRebuild() {
    static auto* const rebuild = new Rebuild;
    return *rebuild;
}

void Rebuild::Begin(std::string_view path) {
    top_ = WithoutTrailingSlashes(path);
    for (int table = 0; table < kRebuildProblem; ++table) {
        const std::string query = "SELECT path FROM " + std::string(kTables[table].name) + " WHERE ";
        for (const std::string& range :
             {"path = " + Quoted(top_), RangeOf("path >= " + Quoted(top_ + '/'))}) {
            const auto rows = MediaDatabase().Query(query + range + " LIMIT 1");
            if (rows != nullptr && rows->count() > 0) MediaTableChanged(kTables[table].name);
        }
    }
}

void Rebuild::Note(int table, std::string_view path) {
    last_ = HashOf(path);
    saved_.push_back(NoteOf(table, path));
}

/// Without the memory for its notes a rebuild removes nothing.
void Rebuild::GiveUp() {
    is_given_up_ = true;
    saved_.clear();
    missed_.clear();
    KOLI_LOG("%s (%d) Failed to remember what a rebuild has met: nothing is removed below %s.", top_.c_str());
}

void Rebuild::Miss(std::string_view path) {
    if (missed_.size() == kMissedMax) return GiveUp();
    missed_.emplace_back(WithoutTrailingSlashes(path));
}

std::string Rebuild::RangeOf(const std::string& from) const {
    return from + " AND path < " + Quoted(top_ + static_cast<char>('/' + 1));
}

bool Rebuild::IsStale(int table, std::string_view path) const {
    if (std::binary_search(saved_.begin(), saved_.end(), NoteOf(table, path))) return false;
    return !LiesInOneOf(missed_, path);
}

int Rebuild::End(bool is_certain) {
    if (!is_certain) return 0;
    std::sort(saved_.begin(), saved_.end());
    std::sort(missed_.begin(), missed_.end());
    return RemoveStale();
}

/// Every table is tried, whatever becomes of another.
int Rebuild::RemoveStale() {
    int result = 0;
    for (int table = 0; table <= kRebuildProblem; ++table)
        if (RemoveStale(table) != 0) result = -1;
    return result;
}

int Rebuild::RemoveStale(int table) {
    const auto remove = [table](const char* path) {
        SqlStatement* statement = MediaDatabase().Prepare(kTables[table].remove);
        if (statement == nullptr) return false;
        statement->Text(1, path);
        return MediaDatabase().Run(*statement) >= 0;
    };
    if (IsStale(table, top_) && !remove(top_.c_str())) return -1;
    std::string from = "path >= " + Quoted(top_ + '/');
    for (int found = kPageRows; found == kPageRows;) {
        const auto rows =
            MediaDatabase().Query("SELECT path FROM " + std::string(kTables[table].name) + " WHERE " +
                                  RangeOf(from) + " ORDER BY path LIMIT " + std::to_string(kPageRows));
        if (rows == nullptr) return -1;
        found = rows->count();
        for (int row = 0; row < found; ++row) {
            const char* path = rows->Field(row, "path");
            if ((KOLIDBRefusing() & KOLI_MEDIA_DB) != 0) return -1;
            if (IsStale(table, path) && !remove(path)) return -1;
        }
        if (found > 0) from = "path > " + Quoted(rows->Field(found - 1, "path"));
        KOLIDBTick();
    }
    return 0;
}

/// A step of the rebuild that is open.
template <typename Step>
void Remember(Step step) {
    Rebuild& rebuild = TheRebuild();
    if (!rebuild.is_noting()) return;
    try {
        step(rebuild);
    } catch (const std::bad_alloc&) {
        rebuild.GiveUp();
    }
}

}  // namespace

void RebuildNote(int table, std::string_view path) {
    Remember([=](Rebuild& rebuild) { rebuild.Note(table, path); });
}

}  // namespace koli::host

using namespace koli::host;

extern "C" {

void MediaRebuildBegin(const char* path) {
    if (path == nullptr || *path == '\0') {
        KOLI_LOG("%s (%d) Bad parameter.");
        return;
    }
    TheRebuild().Open();
    Remember([path](Rebuild& rebuild) { rebuild.Begin(path); });
}

void MediaRebuildMiss(const char* path) {
    Remember([path](Rebuild& rebuild) { rebuild.Miss(path); });
}

int MediaRebuildSavedLast(const char* path) {
    return TheRebuild().SavedLast(path) ? 1 : 0;
}

int MediaRebuildEnd(int is_certain) {
    int result = TheRebuild().is_noting() ? -1 : 0;
    Remember([is_certain, &result](Rebuild& rebuild) { result = rebuild.End(is_certain != 0); });
    TheRebuild().Close();
    return result;
}

}  // extern "C"
