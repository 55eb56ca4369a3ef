#include "platform/host/sqlite/page_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace koli::host {
namespace {

constexpr char kMagic[] = "SQLite format 3";  // with its terminator
constexpr size_t kPageSizeAt = 16, kReservedAt = 20, kUnusedAt = 32;
constexpr uint32_t kDefaultPageSize = 4096;  // what the engine makes unless told otherwise
constexpr uint32_t kUsableMin = 480;

constexpr uint32_t kLogMagic = 0x377f0682;  // the lowest bit tells the checksums' byte order
constexpr size_t kLogHeader = 32, kFrameHeader = 24;

bool IsPageSize(uint32_t size) {
    return size >= 512 && size <= 65536 && (size & (size - 1)) == 0;
}

/// Reads as many bytes as there are; -1 on failure.
ssize_t ReadAt(int fd, void* buffer, size_t size, int64_t offset) {
    size_t done = 0;
    while (done < size) {
        const ssize_t length =
            pread(fd, static_cast<char*>(buffer) + done, size - done, offset + static_cast<off_t>(done));
        if (length < 0 && errno == EINTR) continue;
        if (length < 0) return -1;
        if (length == 0) break;
        done += static_cast<size_t>(length);
    }
    return static_cast<ssize_t>(done);
}

int64_t SizeOf(int fd) {
    struct stat status;
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) ? status.st_size : -1;
}

/// Continues a checksum of the log over `size` bytes, a multiple of 8.
void AddToSum(const uint8_t* bytes, size_t size, bool is_big_endian, uint32_t (&sum)[2]) {
    const auto word = [&](size_t at) {
        const uint8_t* b = bytes + at;
        return is_big_endian ? uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3]
                             : uint32_t{b[3]} << 24 | uint32_t{b[2]} << 16 | uint32_t{b[1]} << 8 | b[0];
    };
    for (size_t at = 0; at < size; at += 8) {
        sum[0] += word(at) + sum[1];
        sum[1] += word(at + 4) + sum[0];
    }
}

}  // namespace

uint32_t PageNumber16(const PageBytes& page, size_t at) {
    return uint32_t{page[at]} << 8 | page[at + 1];
}

uint32_t PageNumber32(const PageBytes& page, size_t at) {
    return PageNumber16(page, at) << 16 | PageNumber16(page, at + 2);
}

std::unique_ptr<PageFile> PageFile::Open(const std::string& file, std::string* error) {
    std::unique_ptr<PageFile> pages(new PageFile);
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    pages->file_ = open(file.c_str(), kFlags);
    const int64_t size = pages->file_ >= 0 ? SizeOf(pages->file_) : -1;
    if (size < 0) {
        *error = pages->file_ < 0 ? strerror(errno) : "it is no regular file";
        return nullptr;
    }
    pages->log_ = open((file + "-wal").c_str(), kFlags);
    PageBytes first(kReservedAt + 1);
    if (ReadAt(pages->file_, first.data(), first.size(), 0) == static_cast<ssize_t>(first.size()) &&
        memcmp(first.data(), kMagic, sizeof kMagic) == 0)
        pages->page_size_ = PageNumber16(first, kPageSizeAt) == 1 ? 65536 : PageNumber16(first, kPageSizeAt);
    if (!IsPageSize(pages->page_size_)) pages->page_size_ = 0;
    if (SizeOf(pages->log_) > 0) pages->ReadLog();
    if (pages->page_size_ == 0) pages->page_size_ = kDefaultPageSize;
    const int64_t in_file = (size + pages->page_size_ - 1) / pages->page_size_;
    const int64_t logged = static_cast<int64_t>(pages->in_log_.size()), count = pages->page_count_;
    // No more than there can be, whatever the log says.
    pages->page_count_ = static_cast<uint32_t>(
        std::min<int64_t>(count > 0 ? std::min(count, in_file + logged) : in_file, UINT32_MAX - 1));
    pages->ReadHeader();
    return pages;
}

PageFile::~PageFile() {
    if (file_ >= 0) close(file_);
    if (log_ >= 0) close(log_);
}

void PageFile::ReadHeader() {
    usable_size_ = page_size_;
    PageBytes page;
    has_header_ = Read(1, &page) && memcmp(page.data(), kMagic, sizeof kMagic) == 0;
    const uint32_t reserved = has_header_ ? page[kReservedAt] : 0;
    if (page_size_ - reserved >= kUsableMin) usable_size_ = page_size_ - reserved;
}

// ---- The log

bool PageFile::ReadLogHeader(uint32_t (&salt)[2], uint32_t (&sum)[2], bool* is_big_endian) {
    PageBytes header(kLogHeader);
    if (ReadAt(log_, header.data(), kLogHeader, 0) != static_cast<ssize_t>(kLogHeader)) return false;
    const uint32_t magic = PageNumber32(header, 0), page_size = PageNumber32(header, 8);
    if ((magic & ~1U) != kLogMagic || !IsPageSize(page_size)) return false;
    if (page_size_ != 0 && page_size_ != page_size) return false;
    *is_big_endian = (magic & 1) != 0;
    AddToSum(header.data(), kFrameHeader, *is_big_endian, sum);
    if (sum[0] != PageNumber32(header, 24) || sum[1] != PageNumber32(header, 28)) return false;
    salt[0] = PageNumber32(header, 16);
    salt[1] = PageNumber32(header, 20);
    page_size_ = page_size;
    return true;
}

/// Notes where the log holds pages, up to the last transaction that is complete.
void PageFile::ReadLog() {
    uint32_t salt[2] = {}, sum[2] = {};
    bool is_big_endian = false;
    if (!ReadLogHeader(salt, sum, &is_big_endian)) return;
    const size_t frame_size = kFrameHeader + page_size_;
    PageBytes frame(frame_size);
    std::unordered_map<uint32_t, int64_t> open_transaction;
    for (int64_t at = kLogHeader;
         ReadAt(log_, frame.data(), frame_size, at) == static_cast<ssize_t>(frame_size);
         at += static_cast<int64_t>(frame_size)) {
        if (PageNumber32(frame, 8) != salt[0] || PageNumber32(frame, 12) != salt[1]) return;
        AddToSum(frame.data(), 8, is_big_endian, sum);
        AddToSum(frame.data() + kFrameHeader, page_size_, is_big_endian, sum);
        if (sum[0] != PageNumber32(frame, 16) || sum[1] != PageNumber32(frame, 20)) return;
        open_transaction[PageNumber32(frame, 0)] = at + static_cast<int64_t>(kFrameHeader);
        const uint32_t count =
            PageNumber32(frame, 4);  // of the database's pages; 0 = the transaction goes on
        if (count == 0) continue;
        for (const auto& [number, offset] : open_transaction)
            in_log_[number] = offset;
        open_transaction.clear();
        page_count_ = count;
    }
}

// ---- Pages

bool PageFile::Read(uint32_t number, PageBytes* page) const {
    if (number == 0 || number > page_count_) return false;
    page->resize(page_size_);
    const auto found = in_log_.find(number);
    const bool is_in_log = found != in_log_.end();
    const int64_t offset = is_in_log ? found->second : int64_t{number - 1} * page_size_;
    return ReadAt(is_in_log ? log_ : file_, page->data(), page_size_, offset) ==
           static_cast<ssize_t>(page_size_);
}

std::vector<bool> PageFile::UnusedPages() const {
    std::vector<bool> unused(size_t{page_count_} + 1);
    PageBytes page;
    if (!has_header_ || !Read(1, &page)) return unused;
    for (uint32_t trunk = PageNumber32(page, kUnusedAt);
         trunk > 1 && trunk <= page_count_ && !unused[trunk];) {
        unused[trunk] = true;
        if (!Read(trunk, &page)) break;
        const uint32_t leaves = std::min(PageNumber32(page, 4), usable_size_ / 4 - 2);
        for (uint32_t i = 0; i < leaves; ++i)
            if (const uint32_t leaf = PageNumber32(page, 8 + size_t{4} * i); leaf > 1 && leaf <= page_count_)
                unused[leaf] = true;
        trunk = PageNumber32(page, 0);
    }
    return unused;
}

}  // namespace koli::host
