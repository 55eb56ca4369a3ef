// A damaged database, page by page: the file as its write-ahead log has changed it.
//
// Nothing here goes through the engine, which refuses a file as a whole for one wrong byte; nothing that is
// read is believed.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace koli::host {

using PageBytes = std::vector<uint8_t>;

/// A big-endian number of 2 or 4 bytes at `at`, which must lie in the page.
uint32_t PageNumber16(const PageBytes& page, size_t at);
uint32_t PageNumber32(const PageBytes& page, size_t at);

class PageFile {
  public:
    /// Opens the database `file`, and "`file`-wal" as far as its transactions are complete.  Null when the
    /// file cannot be opened, with the reason in `*error`.
    static std::unique_ptr<PageFile> Open(const std::string& file, std::string* error);
    ~PageFile();
    PageFile(const PageFile&) = delete;
    PageFile& operator=(const PageFile&) = delete;

    uint32_t page_size() const { return page_size_; }
    uint32_t usable_size() const {
        return usable_size_;
    }  ///< bytes of a page that hold something, at least 480
    uint32_t page_count() const { return page_count_; }  ///< pages count from 1
    bool has_header() const { return has_header_; }      ///< the first page is one

    /// Reads a page.  What lies behind the end of a file that was cut is 0.  False when there is no such
    /// page, or the disk does not give it.
    bool Read(uint32_t number, PageBytes* page) const;

    /// Which pages are unused, as far as their list can be followed; [number].
    std::vector<bool> UnusedPages() const;

  private:
    PageFile() = default;
    void ReadLog();
    void ReadHeader();
    bool ReadLogHeader(uint32_t (&salt)[2], uint32_t (&sum)[2], bool* is_big_endian);

    int file_ = -1, log_ = -1;
    uint32_t page_size_ = 0, usable_size_ = 0, page_count_ = 0;
    bool has_header_ = false;
    std::unordered_map<uint32_t, int64_t> in_log_;  // page → offset of its newest bytes in the log
};

}  // namespace koli::host
