#include "base/directory_listing.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "base/foothold.h"
#include "base/metadata_folder.h"

namespace koli {

bool DirectoryListing::Open(const char* path) {
    return Open(HeldFolder(OpenNear(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
}

bool DirectoryListing::Open(HeldFolder folder) {
    stream_ = folder.Stream();
    struct stat status;
    if (stream_ == nullptr || fstat(descriptor(), &status) != 0) return false;
    device_ = status.st_dev;
    inode_ = status.st_ino;
    return true;
}

DirectoryListing::Entry DirectoryListing::Next() {
    if (held_at_ == held_end_) return Read();
    if (ahead_ > 0) --ahead_;
    const char* text = held_.get() + held_at_;
    held_at_ += 1 + strlen(text + 1) + 1;
    return {text + 1, static_cast<unsigned char>(text[0]), 0};
}

DirectoryListing::Entry DirectoryListing::Ahead(int most) {
    if (ahead_ >= most || !MakeRoom()) return {nullptr, DT_UNKNOWN, 0};
    const size_t at = held_end_;
    if (!Hold(Read()) || at == held_end_) return {nullptr, DT_UNKNOWN, 0};
    ++ahead_;
    return {held_.get() + at + 1, static_cast<unsigned char>(held_[at]), 0};
}

void DirectoryListing::Release() {
    while (MakeRoom() && Hold(Read())) {
    }
}

/// For one more entry in what is held; false when there is none, or nothing more to hold.
bool DirectoryListing::MakeRoom() {
    if (stream_ == nullptr) return false;
    if (held_ == nullptr) held_.reset(new (std::nothrow) char[kHeldSize]);
    if (held_ == nullptr) return false;
    if (held_at_ > kHeldSize / 2) {
        memmove(held_.get(), held_.get() + held_at_, held_end_ - held_at_);
        held_end_ -= held_at_;
        held_at_ = 0;
    }
    return held_end_ + 1 + kNameSize <= kHeldSize;
}

void DirectoryListing::Close() {
    if (stream_ != nullptr) closedir(stream_);
    stream_ = nullptr;
}

DirectoryListing::Entry DirectoryListing::Read() {
    while (stream_ != nullptr) {
        errno = 0;
        const dirent* entry = readdir(stream_);
        if (entry == nullptr) {
            error_ = errno;
            Close();
        } else if (strcmp(entry->d_name, ".") != 0 && strcmp(entry->d_name, "..") != 0) {
            if (strcmp(entry->d_name, kMetadataFolder) != 0)
                return {entry->d_name, entry->d_type, entry->d_ino};
            has_metadata_ = true;
        }
    }
    return {nullptr, DT_UNKNOWN, 0};
}

bool DirectoryListing::Hold(const Entry& entry) {
    if (entry.name == nullptr) return false;
    const size_t size = strlen(entry.name) + 1;
    if (size > kNameSize) return true;  // fits no path
    held_[held_end_] = static_cast<char>(entry.type);
    memcpy(held_.get() + held_end_ + 1, entry.name, size);
    held_end_ += 1 + size;
    return true;
}

}  // namespace koli
