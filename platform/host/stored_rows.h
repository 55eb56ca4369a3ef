// The rows of all tables that are about files and folders, as one list in the order of their paths.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/media_info.h"
#include "platform/host/database_reader.h"

namespace koli::host {

/// Beside the StoreTypes.
enum RowType : int {
    kRowFolder = 100,   // of table directory: no size, no time
    kRowLibrary = 101,  // of table photo_info
    kRowProblem = 102,  // of table problem, but none that only says that a file cannot be parsed: no time
};

struct StoredRow {
    int type = kRowFolder;        // StoreType or RowType
    std::string_view path = {};   // valid until the row is dropped, like `ctime`
    int64_t size = 0;             // bytes; of a problem: its KOLIProblem bits
    std::string_view ctime = {};  // as text, in the form of its table
    bool has_cover = false;
};

class StoredRows {
  public:
    /// The rows with first <= path < behind.  Failures show in reader.error(); the list then ends early.
    StoredRows(const DatabaseReader& reader, const std::string& first, const std::string& behind,
               bool with_library);

    /// The row with the smallest path; null when there is none left.
    const StoredRow* First() const { return first_ < sources_.size() ? &sources_[first_].row : nullptr; }
    void Drop();

  private:
    struct Source {
        std::unique_ptr<SqlStatement> rows;
        StoredRow row;
    };
    static bool Advance(Source& source);
    void FindFirst();

    std::vector<Source> sources_;  // those that have a row
    size_t first_ = 0;             // index of the one with the smallest path
};

}  // namespace koli::host
