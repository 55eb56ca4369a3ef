// What stands directly in a folder.
#include "base/path_names.h"
#include "tools/serve/page/pages.h"
#include "tools/serve/page/parts.h"
#include "tools/serve/page/values.h"

namespace koli::serve {

Reply FolderPage(const Visit& visit) {
    constexpr size_t kEntries = 300;
    const std::string path = PathOf(visit.request.path, 1);
    const Span span = visit.Piece(kEntries);
    const auto entries = visit.library.Folder(path.empty() ? "/" : path, span);
    if (entries.total == 0 && !path.empty()) return MissingPage(visit);
    Markup main = visit.NewMarkup();
    if (!path.empty()) AddFolderTrail(path, main);
    const std::string name = path.empty() ? "All folders" : FileNameOf(path.c_str());
    AddHeading(name, Grouped(static_cast<int64_t>(entries.total)), main);
    if (!path.empty() && Library::IsAway(path)) main << AwayNote(path);
    if (entries.total == 0) main << EmptyNote(visit, kEmptyLibrary, kFillLibrary);
    main << "<ul class=\"names\" id=\"list\">";
    for (const FolderEntry& entry : entries.rows) {
        static constexpr const char* kKinds[] = {"song", "film", "picture", "playlist"};
        AddNamed(entry.is_folder ? Address("/folder").Path(entry.path) : EntryAddress(entry.path),
                 path.empty() ? entry.path : FileNameOf(entry.path.c_str()),
                 entry.is_folder ? "folder" : kKinds[static_cast<size_t>(entry.kind)], main);
    }
    main << "</ul>";
    AddMore(span, entries.total, Address("/folder").Path(path), main);
    return PageReply(
        visit.Head(TitleOf({name, path.empty() ? "" : path, "Folder", FromText(span)}), Area::kNone), main);
}

}  // namespace koli::serve
