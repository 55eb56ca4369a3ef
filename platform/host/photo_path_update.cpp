// KOLIUpdatePhotoPath: moves photo rows to the paths that their files have got, and leaves those of others.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "base/later_renames.h"
#include "base/log.h"
#include "base/path_names.h"
#include "base/photo_record.h"
#include "platform/host/database_groups.h"
#include "platform/host/guard.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"

namespace koli::host {
namespace {

constexpr const char kModule[] = "kolidb";

constexpr const char kMove[] =
    "UPDATE photo_info SET path = ?2, name = ?3, folder = ?4,"
    " title = CASE WHEN title = ?5 THEN ?6 ELSE title END WHERE path = ?1"
    " AND NOT EXISTS (SELECT 1 FROM photo_info WHERE path = ?2)";
constexpr const char kGiveWay[] =
    "DELETE FROM photo_info WHERE path = ?2 AND EXISTS (SELECT 1 FROM photo_info WHERE path = ?1)";
constexpr const char kAsk[] = "SELECT 1 FROM photo_info WHERE path = ?1";

/// The listed paths that begin with `old_path`, in an order in which no row reaches a place before the listed
/// row that stands there has left it: every move changes the length of its path by the same amount.
std::vector<const char*> MovesInOrder(const PhotoPathList* list, std::string_view new_path,
                                      std::string_view old_path) {
    std::vector<const char*> paths;
    for (; list != nullptr; list = list->next)
        if (list->path != nullptr && strncmp(list->path, old_path.data(), old_path.size()) == 0)
            paths.push_back(list->path);
    const bool grow = new_path.size() > old_path.size();
    std::stable_sort(paths.begin(), paths.end(), [grow](const char* a, const char* b) {
        return grow ? strlen(a) > strlen(b) : strlen(a) < strlen(b);
    });
    return paths;
}

/// The title that a photo has by its file name alone, as it is stored.
std::string PlainTitle(const char* path) {
    char title[sizeof PhotoRecord::title];
    TitleFromPath(path, title, sizeof title);
    std::string scratch;
    return std::string(FieldUtf8(title, &scratch));
}

bool HasRow(const std::string& path) {
    const auto rows = PhotoDatabase().Ask(kAsk, path);
    return rows != nullptr && rows->count() > 0;
}

/// A file that still stands where its row says keeps it in two cases: the row is a neighbour's, whose name
/// only begins like the one that was renamed ("Trip 2" beside "Trip"); or there is a row at the new path, for
/// then the rename has been done before.  A file that cannot be looked at may stand; one that a later request
/// brings is another one.  A neighbour that has gone to another name waits for its own request.
bool Stays(const char* path, const std::string& to, size_t old_length) {
    const bool is_neighbour = path[old_length] != '\0' && path[old_length] != '/';
    if (KLIBPathLook(path) == KLIB_PATH_ABSENT) return is_neighbour && IsRenamedLater(path);
    return is_neighbour || (HasRow(to) && !IsBroughtLater(path));
}

/// A row at the new path gives way; without a row at the old one nothing happens.  A row whose new path does
/// not fit into a record is removed: no index of the new place would have it.
bool MoveRow(const char* from, const std::string& to) {
    if (to.size() >= sizeof PhotoRecord::path) return PhotoDatabase().Remove("photo_info", from) >= 0;
    char name[sizeof PhotoRecord::name], folder[sizeof PhotoRecord::folder];
    CopyText(name, sizeof name, FileNameOf(to.c_str()));
    if (!AlbumFromPath(to.c_str(), folder, sizeof folder)) KOLI_LOG("Impossible error.");
    const auto move = [&] {
        return PhotoDatabase().Change(kMove, from, to, name, folder, PlainTitle(from),
                                      PlainTitle(to.c_str()));
    };
    if (const int affected = move(); affected != 0) return affected > 0;
    const int given_way = PhotoDatabase().Change(kGiveWay, from, to);
    return given_way > 0 ? move() > 0 : given_way == 0;
}

bool MoveRows(const std::vector<const char*>& paths, const std::string& new_path, size_t old_length) {
    for (const char* path : paths) {
        const std::string to = new_path + (path + old_length);
        if (!Stays(path, to, old_length) && !MoveRow(path, to)) return false;
    }
    return true;
}

}  // namespace
}  // namespace koli::host

using namespace koli::host;

extern "C" int KOLIUpdatePhotoPath(const PhotoPathList* list, const char* new_path, const char* old_path) {
    if (new_path == nullptr || *new_path == '\0' || old_path == nullptr || *old_path == '\0') {
        KOLI_LOG("Bad parameter.");
        return -1;
    }
    if (strcmp(new_path, old_path) == 0) return 0;
    return Guarded(PhotoDatabase(), [=] {
        const std::vector<const char*> paths = MovesInOrder(list, new_path, old_path);
        if (paths.empty()) return 0;
        PhotoDBUnitBegin();
        // Without memory the database refuses, and the unit's end takes everything back.
        const int moved =
            Guarded(PhotoDatabase(), [&] { return MoveRows(paths, new_path, strlen(old_path)) ? 0 : -1; });
        return PhotoDBUnitEnd(moved == 0 ? 1 : 0) == 0 ? moved : -1;
    });
}
