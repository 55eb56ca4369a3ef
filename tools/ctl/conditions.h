// The conditions of --where.
#pragma once

#include <string>
#include <vector>

#include "platform/host/database_reader.h"

namespace koli::ctl {

/// COLUMN OP VALUE, all of which must hold.  OP is =, !=, ~ (a part of it), !~, <, >, <= or >=.  Texts are
/// equal byte by byte; for ~ and the order they are folded (base/text/fold.h), so that the database,
/// whichever it is, need not know how.  Columns with numbers are compared as numbers.
class Conditions {
  public:
    /// Takes one more.  Returns why it cannot, or "".  Blanks may stand around OP; when none stands before
    /// it, those behind it belong to the value.
    std::string Add(const std::string& text);

    /// Those that the database judges.
    const std::vector<host::ColumnCondition>& of_database() const { return of_database_; }

    /// The columns that Hold looks at.
    std::vector<std::string> Columns() const;

    /// Judges the others, by those columns of the row, which stand in it from `first` on.
    bool Hold(const host::SqlStatement& row, int first);

  private:
    struct Judged {
        std::string column;
        std::string comparison;  // "~", "!~", "<", ">", "<=" or ">="
        std::string value;       // folded
    };
    std::vector<host::ColumnCondition> of_database_;
    std::vector<Judged> judged_;
    std::string folded_;
};

}  // namespace koli::ctl
