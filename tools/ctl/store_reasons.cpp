#include "tools/ctl/store_reasons.h"

#include <algorithm>
#include <cstring>

#include "base/reading_mark.h"
#include "platform/host/tables.h"
#include "platform/kolisdk.h"
#include "tools/ctl/media_kinds.h"
#include "tools/ctl/output.h"
#include "tools/ctl/tree_compare.h"

namespace koli::ctl {
namespace {

bool HasRow(const StoreReader& store, const char* table, const std::string& path) {
    const auto rows = store.Find(table, "path", path);
    return rows != nullptr && rows->Next();
}

std::string StoredKind(const StoreReader& store, const std::string& path) {
    for (int type = 0; type < host::kMediaStoreTables; ++type)
        if (HasRow(store, host::kMediaTables[type], path)) return KindName(type);
    return store.IsRecordedFolder(path) ? "folder" : "";
}

void AddProblem(const StoreReader& store, const std::string& path, Reasons* reasons) {
    const auto rows = store.List(host::kProblemTable, {"reason", "time", "path"}, {.below = path});
    if (rows == nullptr || !rows->Next() || rows->Field(2) != path) return;
    const std::string reason(rows->Field(0)), time(rows->Field(1));
    if (reason == kBroughtDown)
        reasons->push_back({"brought_down", reason});
    else
        reasons->push_back({"problem", "reading it has met a problem: " + reason + " (" + time + ")"});
}

/// What a comparison has found at the path itself, and how much below it.
class Findings {
  public:
    Findings(const StoreReader& store, const std::string& path, const CompareOptions& options)
        : result_(TreeCompare(store, path, options, [&](Change change, const std::string& at) {
              if (at == path)
                  changes_[static_cast<size_t>(change)] = true;
              else
                  ++below_;
          })) {}

    bool Has(Change change) const { return changes_[static_cast<size_t>(change)]; }
    /// All has been compared, and nothing found.
    bool IsInStep() const {
        return result_.status == CompareResult::kCompared && result_.unreadable == 0 && below_ == 0 &&
               std::ranges::none_of(changes_, [](bool is_found) { return is_found; });
    }
    int64_t below() const { return below_; }
    const CompareResult& result() const { return result_; }

  private:
    bool changes_[kChanges] = {};
    int64_t below_ = 0;
    const CompareResult result_;
};

void CompareFile(const StoreReader& store, const std::string& path, StoredAs* stored) {
    const Findings media(store, path, {.photo_library = false});
    const Findings photos(store, path, {.media_store = false});
    Reasons& reasons = stored->reasons;
    if (media.Has(Change::kNewFile) && !stored->kind.empty())
        reasons.push_back({"other_kind", "it is stored as what it is not: " + stored->kind});
    if (media.Has(Change::kChangedFile))
        reasons.push_back(
            {"changed", "it has changed since it was stored (koliindexctl sync has it read again)"});
    if (media.Has(Change::kNoCover))
        reasons.push_back(
            {"no_cover", "its cover is gone from @eaDir (koliindexctl sync has it made again)"});
    if (photos.Has(Change::kChangedFile) && !stored->is_in_photos)
        reasons.push_back(
            {"not_in_photo_library", "the photo library does not hold it (koliindexctl sync mends that)"});
    else if (photos.Has(Change::kChangedFile) && !media.Has(Change::kChangedFile))
        reasons.push_back(
            {"changed",
             "it has changed since the photo library took it (koliindexctl sync has it read again)"});
    if (media.Has(Change::kUnread) || photos.Has(Change::kUnread))
        reasons.push_back({"unread", "what went wrong may be over (koliindexctl sync has it read again)"});
    stored->is_in_step = !stored->kind.empty() && MediaKindOf(path.c_str()) != kNotIndexed &&
                         media.IsInStep() && photos.IsInStep();
}

/// What lies above the shares may be the whole machine.
void CompareFolder(const StoreReader& store, const std::string& path, StoredAs* stored) {
    if (stored->kind.empty() && !ShareReasons(path).empty()) return;
    const Findings found(store, path, {.albums = true});
    Reasons& reasons = stored->reasons;
    if (found.result().status == CompareResult::kTopEmpty)
        reasons.push_back(
            {"looks_unmounted", "it may not be mounted: it is empty, but files are stored below it"});
    if (found.result().status == CompareResult::kTopUnreadable)
        reasons.push_back(
            {"unreadable", std::string("it cannot be read: ") + strerror(found.result().error)});
    if (found.Has(Change::kNoAlbum))
        reasons.push_back({"no_album", "it is no album of the photo library (koliindexctl sync mends that)"});
    if (found.Has(Change::kUnread))
        reasons.push_back({"unread", "what went wrong may be over (koliindexctl sync has it read again)"});
    if (found.below() > 0)
        reasons.push_back({"differences_below", "it holds " + Counted(found.below(), "difference") +
                                                    " from what is stored (koliindexctl sync --dry-run)"});
    if (found.result().unreadable > 0)
        reasons.push_back({"unreadable_below", "not every folder in it can be read"});
    stored->is_in_step = stored->kind == "folder" && found.IsInStep();
}

}  // namespace

std::string KindName(int type) {
    return type == kNotIndexed ? "" : host::kMediaTables[type];
}

StoredAs StoredAsOf(const StoreReader& store, const std::string& path) {
    StoredAs stored{.kind = StoredKind(store, path), .is_in_photos = HasRow(store, "photo_info", path)};
    AddProblem(store, path, &stored.reasons);
    switch (KLIBPathLook(path.c_str())) {
        case KLIB_PATH_FILE:
            CompareFile(store, path, &stored);
            break;
        case KLIB_PATH_DIRECTORY:
            CompareFolder(store, path, &stored);
            break;
        case KLIB_PATH_ABSENT:
            if (!stored.kind.empty() || store.HasRowsBelow(path))
                stored.reasons.push_back({"gone",
                                          "it is gone from the disk, but not from what is stored "
                                          "(koliindexctl sync or remove forgets it)"});
            break;
        default:
            break;
    }
    return stored;
}

}  // namespace koli::ctl
