// A table row by row in the order of its keys, read in pieces: between two of them the database is free.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/database_reader.h"

namespace koli::serve {

class TableCursor {
  public:
    /// The first column is the table's key.  At the first row, if there is one.
    TableCursor(const host::DatabaseReader& reader, const char* table, std::vector<std::string> columns)
        : reader_(reader), table_(table), columns_(std::move(columns)) {
        ReadPiece("");
    }

    bool HasRow() const { return row_ < count_; }
    void Next();
    /// A field of the row, until the next Next.  A row that is not there has empty fields.
    std::string_view Field(size_t column) const;
    std::string_view Key() const { return Field(0); }
    bool IsAtPieceBegin() const { return row_ == 0; }

  private:
    void ReadPiece(const std::string& behind);

    const host::DatabaseReader& reader_;
    const char* const table_;
    const std::vector<std::string> columns_;
    std::string text_;             // the piece's fields, one behind the other
    std::vector<size_t> offsets_;  // where each begins, and the end of the last
    size_t row_ = 0, count_ = 0;
};

}  // namespace koli::serve
