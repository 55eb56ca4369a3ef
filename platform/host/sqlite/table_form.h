// What the rows of a table look like, for telling rows whose table is not known.
#pragma once

#include <string>
#include <vector>

#include "platform/host/sqlite/connection.h"
#include "platform/host/sqlite/page_records.h"

namespace koli::host {

/// A table of today's schema.  Columns are in the order in which a row holds them.
struct TableForm {
    std::string name;
    bool is_clustered = false;  // by its key, without row numbers
    int rowid_column = -1;      // the column that is the row's number, which the row itself leaves out
    std::vector<std::string> columns = {};
    std::vector<PageValue::Kind> kinds = {};
    bool is_unique = true;    // no other table looks like it
    std::string insert = {};  // the statement, with a parameter for each column

    bool IsOnPage(TreePage::Kind kind) const;

    /// Whether the row can be one of this table: column by column what the table holds there, and where it
    /// has a path, one.
    bool Fits(const PageRecord& record) const;

    /// Makes a row of this table of a shorter one, or one with other values than the table takes.
    void Complete(PageRecord* record) const;
};

/// The tables of a sound database.
std::vector<TableForm> TableForms(Sql& sql);

}  // namespace koli::host
