// The records on a page of a damaged database.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/host/sqlite/page_file.h"

namespace koli::host {

struct PageValue {
    enum Kind { kNull, kInteger, kReal, kText } kind = kNull;  // kText: bytes of any kind
    int64_t integer = 0;
    double real = 0;
    std::string text;
};

struct PageRecord {
    int64_t rowid = 0;  // of a table with row numbers
    std::vector<PageValue> values;
};

/// One page of a table's tree.
class TreePage {
  public:
    enum Kind : uint8_t {
        kOther = 0,
        kKeyNode = 2,    // clustered by its key: records and child pages
        kTableNode = 5,  // by row number: child pages alone
        kKeyLeaf = 10,
        kTableLeaf = 13
    };

    /// Reads page `number`; its kind is kOther when that fails or it is no page of a tree.
    TreePage(const PageFile& file, uint32_t number);

    Kind kind() const { return kind_; }
    bool IsClustered() const { return kind_ == kKeyNode || kind_ == kKeyLeaf; }
    bool HasRecords() const { return kind_ != kOther && kind_ != kTableNode; }
    uint32_t cells() const { return cells_; }

    /// The record of a cell, with what lies on further pages.  False when it is damaged.
    bool Record(uint32_t cell, PageRecord* record) const;

    /// The pages below, numbers not checked; none of a leaf.
    std::vector<uint32_t> Children() const;

  private:
    bool Payload(size_t at, size_t size, std::string* payload) const;

    const PageFile& file_;
    PageBytes page_;
    Kind kind_ = kOther;
    size_t header_ = 0;  // where the page's header begins
    uint32_t cells_ = 0;
};

}  // namespace koli::host
