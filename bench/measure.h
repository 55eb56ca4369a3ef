// Clocks and counters of this process, and the stores that are measured.
#pragma once

#include <functional>
#include <string>
#include <vector>

struct sqlite3;

namespace koli::bench {

/// One measured pass over some files.
struct Pass {
    double seconds = 0;
    double bytes = 0;  // given by read calls, the databases' own included
    long peak_kb = 0;  // resident set at its largest
};

/// Runs `work` and measures it.
Pass Measure(const std::function<void()>& work);

/// Has `measure` run in a child of its own: with its own peak memory, and leaving this process's heap alone.
Pass InChild(const std::function<Pass()>& measure);

double MedianSeconds(const std::vector<Pass>& passes);
double MedianBytes(const std::vector<Pass>& passes);
double MedianPeak(const std::vector<Pass>& passes);

/// Where both stores lie: below $TMPDIR, else /tmp.
std::string StoreDirectory();

/// Gives the process two new stores, opened and with their tables.
void FreshStores();

/// What another program sees of a database of StoreDirectory().
class Observer {
  public:
    explicit Observer(const char* database);  ///< "media.db", "photo.db"
    ~Observer();
    Observer(const Observer&) = delete;
    Observer& operator=(const Observer&) = delete;

    /// The number that a query gives.
    long Number(const char* sql);
    /// True when a transaction of the program that is measured wrote since the last call.
    bool HasBeenWritten();

  private:
    sqlite3* db_ = nullptr;
    long version_ = 0;
};

[[noreturn]] void Fail(const char* what);

}  // namespace koli::bench
