#include "tools/watch/folder_tree.h"

#include <cstring>

namespace koli::watch {
namespace {

std::unique_ptr<char[]> CopyName(std::string_view name) {
    auto copy = std::make_unique<char[]>(name.size() + 1);
    memcpy(copy.get(), name.data(), name.size());
    return copy;
}

}  // namespace

size_t FolderTree::Hash::operator()(const Key& key) const {
    constexpr size_t kSpread = 0x9E3779B9;  // an odd number without a pattern: neighbours part
    return std::hash<std::string_view>()(key.name) ^ (size_t{key.parent} * kSpread);
}

size_t FolderTree::Hash::operator()(FolderId folder) const {
    const Node& node = (*nodes)[folder];
    return (*this)(Key{node.parent, node.name.get()});
}

bool FolderTree::Equal::operator()(const Key& key, FolderId folder) const {
    const Node& node = (*nodes)[folder];
    return node.parent == key.parent && key.name == node.name.get();
}

FolderTree::FolderTree() : siblings_(0, Hash{&nodes_}, Equal{&nodes_}) {}

FolderId FolderTree::Add(FolderId parent, std::string_view name) {
    const FolderId known = Find(parent, name);
    if (known != kNoFolder) return known;
    const FolderId folder = NewPlace();
    Node& node = nodes_[folder];
    node.name = CopyName(name);
    node.first_child = kNoFolder;
    node.watch = kNoWatch;
    Link(folder, parent);
    return folder;
}

FolderId FolderTree::Find(FolderId parent, std::string_view name) const {
    const auto found = siblings_.find(Key{parent, name});
    return found != siblings_.end() ? *found : kNoFolder;
}

bool FolderTree::Move(FolderId folder, FolderId parent, std::string_view name) {
    if (nodes_[folder].parent == kNoFolder || Find(parent, name) != kNoFolder) return false;
    if (IsAtOrBelow(parent, folder)) return false;
    Unlink(folder);
    nodes_[folder].name = CopyName(name);
    Link(folder, parent);
    return true;
}

void FolderTree::Remove(FolderId folder, const std::function<void(FolderId, int)>& removed) {
    std::vector<FolderId> tree{folder};
    for (size_t i = 0; i < tree.size(); ++i)
        for (FolderId child = nodes_[tree[i]].first_child; child != kNoFolder; child = nodes_[child].next)
            tree.push_back(child);
    for (auto it = tree.rbegin(); it != tree.rend(); ++it) {
        removed(*it, nodes_[*it].watch);
        SetWatch(*it, kNoWatch);
        Unlink(*it);
        nodes_[*it].name.reset();
        free_.push_back(*it);
    }
}

void FolderTree::SetWatch(FolderId folder, int watch) {
    Node& node = nodes_[folder];
    const auto known = by_watch_.find(node.watch);
    if (known != by_watch_.end() && known->second == folder) by_watch_.erase(known);
    node.watch = watch;
    if (watch != kNoWatch) by_watch_[watch] = folder;
}

FolderId FolderTree::FolderOf(int watch) const {
    const auto found = by_watch_.find(watch);
    return found != by_watch_.end() ? found->second : kNoFolder;
}

FolderId FolderTree::TopOf(FolderId folder) const {
    while (nodes_[folder].parent != kNoFolder)
        folder = nodes_[folder].parent;
    return folder;
}

bool FolderTree::IsAtOrBelow(FolderId folder, FolderId above) const {
    while (folder != kNoFolder && folder != above)
        folder = nodes_[folder].parent;
    return folder != kNoFolder;
}

std::string FolderTree::PathOf(FolderId folder) const {
    std::vector<FolderId> way;
    for (; folder != kNoFolder; folder = nodes_[folder].parent)
        way.push_back(folder);
    std::string path;
    for (auto it = way.rbegin(); it != way.rend(); ++it) {
        if (it != way.rbegin()) path += '/';
        path += nodes_[*it].name.get();
    }
    return path;
}

FolderId FolderTree::NewPlace() {
    if (free_.empty()) {
        nodes_.emplace_back();
        return static_cast<FolderId>(nodes_.size() - 1);
    }
    const FolderId folder = free_.back();
    free_.pop_back();
    return folder;
}

void FolderTree::Link(FolderId folder, FolderId parent) {
    Node& node = nodes_[folder];
    node.parent = parent;
    node.previous = kNoFolder;
    node.next = kNoFolder;
    if (parent != kNoFolder) {
        node.next = nodes_[parent].first_child;
        if (node.next != kNoFolder) nodes_[node.next].previous = folder;
        nodes_[parent].first_child = folder;
    }
    siblings_.insert(folder);
}

void FolderTree::Unlink(FolderId folder) {
    siblings_.erase(folder);
    const Node& node = nodes_[folder];
    if (node.next != kNoFolder) nodes_[node.next].previous = node.previous;
    if (node.previous != kNoFolder) {
        nodes_[node.previous].next = node.next;
    } else if (node.parent != kNoFolder) {
        nodes_[node.parent].first_child = node.next;
    }
}

}  // namespace koli::watch
