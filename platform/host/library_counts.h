// How many of what the databases hold, counted by them.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/database_reader.h"

namespace koli::host {

/// What rows are counted by.
enum class CountedBy : size_t {
    kArtist,
    kAlbum,
    kGenre,
    kYear,
    kCamera,    // the model, or only the maker where that is all that is known
    kTakenYear  // as text
};

struct TableTotals {
    int64_t rows = 0;
    int64_t bytes = 0;   // of the files
    double seconds = 0;  // of sound or film
};

struct ValueCount {
    std::string value;  // as it is stored
    int64_t rows;
};

/// Of all rows, or of those at and below a path.  Failures show in reader.error(); a count is then 0.
class LibraryCounts {
  public:
    LibraryCounts(const DatabaseReader& reader, std::string below)
        : reader_(reader), below_(std::move(below)) {}

    /// Of a table of the media store that holds files.
    TableTotals Totals(const char* table) const;

    /// The same for each library, by its name, where the reader has those of all.
    std::vector<std::pair<std::string, TableTotals>> TotalsByLibrary(const char* table) const;

    /// Rows of any table with a path.
    int64_t Rows(const char* table) const;

    /// How many different values there are, those that are not known left out.
    int64_t Different(const char* table, CountedBy by) const;

    /// The values with the most rows, the greatest number first; at most `limit`.
    std::vector<ValueCount> Most(const char* table, CountedBy by, int limit) const;

    /// All values in their order, at most `limit`.
    std::vector<ValueCount> InOrder(const char* table, CountedBy by, int limit) const;

  private:
    std::unique_ptr<SqlStatement> Query(const char* table, const std::string& terms,
                                        const std::string& behind) const;
    std::vector<ValueCount> Groups(const char* table, CountedBy by, const std::string& order,
                                   int limit) const;

    const DatabaseReader& reader_;
    const std::string below_;
};

}  // namespace koli::host
