// The watched folders of a run, held so that a hundred thousand of them cost little memory.
//
// A folder is its own name and the number of its parent; full paths are put together when they are needed.  A
// folder that moves takes everything below it along without a change to any of those.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace koli::watch {

using FolderId = uint32_t;  // numbers of removed folders are given out again
inline constexpr FolderId kNoFolder = UINT32_MAX;
inline constexpr int kNoWatch = -1;

class FolderTree {
  public:
    FolderTree();
    FolderTree(const FolderTree&) = delete;
    FolderTree& operator=(const FolderTree&) = delete;

    /// Adds a top by its absolute path, without a '/' at its end.
    FolderId AddTop(std::string_view path) { return Add(kNoFolder, path); }

    /// The folder `name` directly inside `parent`, added when it is not known yet.
    FolderId Add(FolderId parent, std::string_view name);

    /// kNoFolder when `parent` has no such folder.
    FolderId Find(FolderId parent, std::string_view name) const;

    /// Gives `folder` another parent and name.  False, and nothing changes, for a top, for a name that is
    /// taken and for a parent at or below the folder.
    bool Move(FolderId folder, FolderId parent, std::string_view name);

    /// Removes `folder` and all below it.  `removed` is told each one with its watch, while its path can
    /// still be asked for; it must not change the tree.
    void Remove(FolderId folder, const std::function<void(FolderId, int watch)>& removed);

    /// Ties a folder to the kernel's watch descriptor; kNoWatch unties it.
    void SetWatch(FolderId folder, int watch);
    int WatchOf(FolderId folder) const { return nodes_[folder].watch; }

    /// kNoFolder for a descriptor that belongs to no folder (any more).
    FolderId FolderOf(int watch) const;

    /// False for a number that belongs to no folder (any more).
    bool Contains(FolderId folder) const { return folder < nodes_.size() && nodes_[folder].name != nullptr; }

    FolderId ParentOf(FolderId folder) const { return nodes_[folder].parent; }
    std::string_view NameOf(FolderId folder) const { return nodes_[folder].name.get(); }
    FolderId TopOf(FolderId folder) const;
    bool IsAtOrBelow(FolderId folder, FolderId above) const;
    std::string PathOf(FolderId folder) const;

    size_t size() const { return siblings_.size(); }

  private:
    struct Node {
        std::unique_ptr<char[]> name;  // null: the place is free
        FolderId parent;               // kNoFolder at a top
        FolderId first_child;
        FolderId next;  // sibling
        FolderId previous;
        int watch;
    };
    struct Key {
        FolderId parent;
        std::string_view name;
    };
    struct Hash {
        using is_transparent = void;
        const std::vector<Node>* nodes;
        size_t operator()(const Key& key) const;
        size_t operator()(FolderId folder) const;
    };
    struct Equal {
        using is_transparent = void;
        const std::vector<Node>* nodes;
        bool operator()(FolderId a, FolderId b) const { return a == b; }
        bool operator()(const Key& key, FolderId folder) const;
        bool operator()(FolderId folder, const Key& key) const { return (*this)(key, folder); }
    };

    FolderId NewPlace();
    void Link(FolderId folder, FolderId parent);
    void Unlink(FolderId folder);

    std::vector<Node> nodes_;
    std::vector<FolderId> free_;
    std::unordered_set<FolderId, Hash, Equal> siblings_;  // every folder, found by parent and name
    std::unordered_map<int, FolderId> by_watch_;
};

}  // namespace koli::watch
