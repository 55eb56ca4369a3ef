// How a row is saved over the one with the same key, whichever engine does it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace koli::host {

/// A row's columns, and with them the parameters of the statement that saves it: those of `columns`, of which
/// the first is the key, and behind them those of `special`: each a column and what a row that is there gets
/// for it instead, an expression of "TABLE.column" (as it is), "excluded.column" (as it was handed over) and
/// of parameters behind these.  A row that would stay as it is counts as not affected.
struct SaveForm {
    std::string table;
    std::vector<const char*> columns;
    std::vector<std::pair<const char*, const char*>> special = {};

    std::vector<const char*> AllColumns() const;
    /// What a row that is there gets for the column at `index` of all, which is not the key.
    std::string ValueOf(size_t index) const;
};

/// An INSERT that goes over to an UPDATE where the key is there: `row` is what stands between the names of
/// the columns and ON CONFLICT.
std::string UpsertText(const SaveForm& form, const std::string& row);

/// "?1, ?2, ..." for all columns.
std::string SaveParameters(const SaveForm& form);

/// "(table.a, table.b) IS DISTINCT FROM (value, value)", of all columns but the key.
std::string SaveDifference(const SaveForm& form);

}  // namespace koli::host
