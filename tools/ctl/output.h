// What commands print: tables and lists for people, JSON for programs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/host/sql/sql.h"

namespace koli::ctl {

/// Text that is safe on a terminal: control characters, those of the direction of writing, and bytes that are
/// not UTF-8 as \n, \t or \xNN.
std::string Printable(std::string_view text);

/// "1 file", "2 files".
std::string Counted(int64_t count, const std::string& noun);

/// "17 bytes", "4.2 MiB".
std::string SizeText(int64_t bytes);

/// A value of a field.
struct Field {
    Field() = default;
    Field(std::string_view value) : text(value) {}
    Field(const char* value) : text(value) {}
    Field(const std::string& value) : text(value) {}
    Field(int64_t value) : kind(kNumber), text(std::to_string(value)), number(value) {}
    Field(bool value) : kind(kBoolean), text(value ? "yes" : "no"), number(value ? 1 : 0) {}
    static Field Real(double value);
    static Field Of(const host::SqlStatement& row, int column);

    enum Kind { kText, kNumber, kReal, kBoolean } kind = kText;
    std::string text;  // as it is printed for people; of kText the bytes as they are
    int64_t number = 0;
    double real = 0;
};

using Record = std::vector<std::pair<std::string, Field>>;

/// The row at which the statement is, with the names of its columns.
Record RecordOf(const host::SqlStatement& row);

using RecordHandler = std::function<void(const Record& record)>;

struct Section {
    std::string name;
    std::vector<Record> records = {};
    bool is_one = false;  // exactly one record: an object in JSON, not a list
    /// Hands over more records, which are too many to be held.
    std::function<void(const RecordHandler& print)> more = {};
};

/// "name   value" lines, safe on a terminal; of a value that makes one longer the middle is cut.
std::vector<std::string> RecordLines(const Record& record, size_t columns);

/// An object in JSON, on one line if `is_compact`; the sections are lists in it.
std::string RecordJson(const Record& record, const std::vector<Section>& lists, bool is_compact);

/// One object: "name   value" lines, or JSON.
void PrintRecord(const Record& record, bool json);

/// One JSON object: the fields of `record`, and behind them the sections by name.
void PrintObject(const Record& record, const std::vector<Section>& sections);

/// Objects and lists of objects by name.  For people empty texts and zeroes are left out.
void PrintSections(const std::vector<Section>& sections, bool json);

/// Rows of the same columns, printed as they come: the widths are those of the first rows.  On a terminal
/// they are cut to its width, elsewhere they stay whole.  JSON: an array of objects.
class RowPrinter {
  public:
    RowPrinter(std::vector<std::string> columns, bool json);
    ~RowPrinter();  ///< prints what is left
    RowPrinter(const RowPrinter&) = delete;
    RowPrinter& operator=(const RowPrinter&) = delete;

    void Row(const std::vector<Field>& fields);
    int64_t count() const { return count_; }

  private:
    void PrintHeld();
    void FitWidths();
    std::string Cut(size_t column, const std::string& text) const;
    void PrintLine(const std::vector<std::string>& texts) const;
    void PrintObject(const std::vector<Field>& fields) const;

    std::vector<std::string> columns_;
    bool json_;
    size_t room_;  // of a terminal; 0 = as much as it takes
    int64_t count_ = 0;
    std::vector<size_t> widths_;                  // as a terminal counts
    std::vector<std::vector<std::string>> held_;  // first rows, until the widths are set
    bool has_widths_ = false;
};

}  // namespace koli::ctl
