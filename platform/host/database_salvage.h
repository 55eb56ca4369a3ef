// Saves what can be read from a damaged database into a new one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/host/sql.h"

namespace koli::host {

struct SalvageTable {
    std::string name;
    int64_t rows = 0;   // saved
    int64_t found = 0;  // of them on pages that no longer belong to any table
};

struct Salvage {
    std::vector<SalvageTable> tables = {};
    int64_t lost_pages = 0;      // pages of the tables that cannot be read
    int64_t lost_rows = 0;       // rows on other pages that cannot be read, or belong to nothing
    bool lost_contents = false;  // a table, or the list of all tables, is gone
    std::string error = {};      // why the new database could not be made; '' = it was

    bool IsWhole() const { return lost_pages == 0 && lost_rows == 0 && !lost_contents; }
};

/// Makes the database `made` (which gives way when there is one) with the tables of `schema` (schema.h) and
/// the rows of `damaged`, which is only read: first those of its tables, then those on pages that belong to
/// none and whose form tells what they are.  A row that another one with the same key precedes is left out.
/// `amend`, when not empty, may add to the rows and sees what was lost.  The new database is one file, on the
/// disk, with the owner and the rights of the damaged one.
Salvage DatabaseSalvage(const std::string& damaged, const std::string& made,
                        const std::vector<std::string>& schema,
                        const std::function<void(const Salvage&, Sql&)>& amend = nullptr);

}  // namespace koli::host
