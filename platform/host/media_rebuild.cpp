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
constexpr char kLeastByte = '\1';     // of a path
constexpr size_t kMissedMax = 10000;  // paths; with more, nothing is removed

/// By the table of a note.
constexpr const char* kTables[] = {"music", "video", "photo", "playlist", "directory", "problem"};

/// Of the problems those of the media store.
bool Remove(int table, std::string_view path) {
    if (table < kRebuildProblem) return MediaDatabase().Remove(kTables[table], path) >= 0;
    return MediaDatabase().Change("DELETE FROM problem WHERE path = ?1 AND kind < 2", path) >= 0;
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
    std::unique_ptr<SqlRows> RowsFrom(int table, std::string_view first, int limit) const;

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
        const std::string name = kTables[table];
        const auto itself = MediaDatabase().Ask("SELECT 1 FROM " + name + " WHERE path = ?1", top_);
        const auto below = RowsFrom(table, top_ + '/', 1);
        for (const auto* rows : {itself.get(), below.get()})
            if (rows != nullptr && rows->count() > 0) MediaTableChanged(kTables[table]);
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
    KOLI_LOG("Failed to remember what a rebuild has met: nothing is removed below %s.", top_.c_str());
}

void Rebuild::Miss(std::string_view path) {
    if (missed_.size() == kMissedMax) return GiveUp();
    missed_.emplace_back(WithoutTrailingSlashes(path));
}

/// Rows below the top, from the key `first` on.
std::unique_ptr<SqlRows> Rebuild::RowsFrom(int table, std::string_view first, int limit) const {
    const std::string name = kTables[table];
    return MediaDatabase().Ask(
        "SELECT path FROM " + name + " WHERE path >= ?1 AND path < ?2 ORDER BY path LIMIT ?3", first,
        KeyBehind(top_), limit);
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
    if (IsStale(table, top_) && !Remove(table, top_)) return -1;
    std::string first = top_ + '/';
    for (int found = kPageRows; found == kPageRows;) {
        const auto rows = RowsFrom(table, first, kPageRows);
        if (rows == nullptr) return -1;
        found = rows->count();
        for (int row = 0; row < found; ++row) {
            const char* path = rows->Field(row, "path");
            if ((KOLIDBRefusing() & KOLI_MEDIA_DB) != 0) return -1;
            if (IsStale(table, path) && !Remove(table, path)) return -1;
        }
        if (found > 0) first = rows->Field(found - 1, "path") + std::string(1, kLeastByte);
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
        KOLI_LOG("Bad parameter.");
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
