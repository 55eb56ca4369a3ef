// What this machine can do at best with a library: the bare loops that the indexer is compared with.
#pragma once

#include <string>

namespace koli::bench {

/// One measured pass over a folder.
struct Pass {
    long files = 0;
    double seconds = 0;
    double megabytes = 0;  // read

    double MicrosecondsEach() const { return files != 0 ? seconds * 1e6 / static_cast<double>(files) : 0; }
};

/// Seconds of a monotonic clock.
double Now();

/// Every *.mp3 below `dir`: open, read the first quarter in 16384-byte reads, look for "Xing" in each with
/// memmem and stop at the first hit, then upsert one row of 31 columns with a prepared statement, 100 rows a
/// transaction.
Pass Mp3BareLoop(const std::string& dir, const std::string& database);

/// Every *.jpg below `dir`: open, the EXIF loader, the picture's size from its header, and two rows.
Pass PhotoBareLoop(const std::string& dir, const std::string& database);

}  // namespace koli::bench
