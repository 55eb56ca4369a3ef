#include "tools/ctl/albums.h"

#include <algorithm>

#include "base/metadata_folder.h"
#include "index/record/share_path.h"
#include "platform/paths.h"
#include "tools/ctl/request_line.h"

namespace koli::ctl {
namespace {

bool IsOfAlbumDepth(const std::string& name) {
    return !name.empty() && std::count(name.begin(), name.end(), '/') <= 1;
}

/// Hidden folders and those beside the media are met by no walk for albums.
bool IsWalked(const std::string& name) {
    return !name.starts_with('.') && name.find("/.") == std::string::npos &&
           !MentionsMetadataFolder(name.c_str());
}

}  // namespace

Albums::Albums(const StoreReader& store) {
    const std::string share = VolumePath(paths::kPhotoShare);
    if (share.size() != kShareTopLength || IsPhotoSharePath(share.c_str()) == 0) return;
    share_ = share + '/';
    names_ = store.AlbumNames();
}

bool Albums::IsMissing(const std::string& folder) const {
    if (share_.empty() || !folder.starts_with(share_) || IsRecycleBinPath(folder.c_str()) != 0) return false;
    const std::string name = folder.substr(share_.size());
    return IsOfAlbumDepth(name) && IsWalked(name) && !names_.contains(name);
}

/// A name that no walk can have given is left to whoever gave it: no request would remove it.
std::vector<std::string> Albums::FoldersBelow(const std::string& top) const {
    std::vector<std::string> folders;
    for (const std::string& name : names_) {
        std::string folder = share_ + name;
        const bool is_plain = AbsolutePath(folder, "/") == folder;
        if (is_plain && IsOfAlbumDepth(name) && folder.starts_with(FirstKeyBelow(top)))
            folders.push_back(std::move(folder));
    }
    std::sort(folders.begin(), folders.end());
    return folders;
}

}  // namespace koli::ctl
