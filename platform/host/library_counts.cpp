#include "platform/host/library_counts.h"

#include <iterator>

namespace koli::host {
namespace {

struct Term {
    const char* text;
    const char* unknown;  // what it is where the file does not tell
};

/// By CountedBy.
constexpr Term kTerms[] = {
    {R"(artist COLLATE "C")", "''"},
    {R"(album COLLATE "C")", "''"},
    {R"(genre COLLATE "C")", "''"},
    {"year", "0"},
    {R"((CASE WHEN camera_model <> '' THEN camera_model ELSE camera_make END) COLLATE "C")", "''"},
    {R"(substr(date_taken, 1, 4) COLLATE "C")", "''"},
};
static_assert(std::size(kTerms) == static_cast<size_t>(CountedBy::kTakenYear) + 1);

const Term& TermOf(CountedBy by) {
    return kTerms[static_cast<size_t>(by)];
}

std::string IsKnown(const Term& term) {
    return std::string(" AND ") + term.text + " <> " + term.unknown;
}

}  // namespace

std::unique_ptr<SqlStatement> LibraryCounts::Query(const char* table, const std::string& terms,
                                                   const std::string& behind) const {
    const std::string where = below_.empty() ? "1 = 1" : std::string("(") + kPathRange + ")";
    auto rows = reader_.Rows(table, "SELECT " + terms + " FROM " + table + " WHERE " + where + behind);
    if (rows != nullptr && !below_.empty()) FillPathRange(*rows, below_);
    return rows;
}

TableTotals LibraryCounts::Totals(const char* table) const {
    const auto rows = Query(table, "count(*), sum(file_size), sum(duration)", "");
    if (rows == nullptr || !rows->Next()) return {};
    return {rows->Number(0), rows->Number(1), rows->RealNumber(2)};
}

std::vector<std::pair<std::string, TableTotals>> LibraryCounts::TotalsByLibrary(const char* table) const {
    const auto rows = Query(table, "library, count(*), sum(file_size), sum(duration)",
                            " GROUP BY library ORDER BY library");
    std::vector<std::pair<std::string, TableTotals>> totals;
    while (rows != nullptr && rows->Next())
        totals.emplace_back(rows->Field(0),
                            TableTotals{rows->Number(1), rows->Number(2), rows->RealNumber(3)});
    return totals;
}

int64_t LibraryCounts::Rows(const char* table) const {
    const auto rows = Query(table, "count(*)", "");
    return rows != nullptr && rows->Next() ? rows->Number(0) : 0;
}

int64_t LibraryCounts::Different(const char* table, CountedBy by) const {
    const Term& term = TermOf(by);
    const auto rows = Query(table, std::string("count(DISTINCT ") + term.text + ")", IsKnown(term));
    return rows != nullptr && rows->Next() ? rows->Number(0) : 0;
}

std::vector<ValueCount> LibraryCounts::Most(const char* table, CountedBy by, int limit) const {
    return Groups(table, by, "2 DESC, 1", limit);
}

std::vector<ValueCount> LibraryCounts::InOrder(const char* table, CountedBy by, int limit) const {
    return Groups(table, by, "1", limit);
}

std::vector<ValueCount> LibraryCounts::Groups(const char* table, CountedBy by, const std::string& order,
                                              int limit) const {
    const Term& term = TermOf(by);
    const auto rows =
        Query(table, std::string(term.text) + ", count(*)",
              IsKnown(term) + " GROUP BY 1 ORDER BY " + order + " LIMIT " + std::to_string(limit));
    std::vector<ValueCount> groups;
    while (rows != nullptr && rows->Next())
        groups.push_back({std::string(rows->Field(0)), rows->Number(1)});
    return groups;
}

}  // namespace koli::host
