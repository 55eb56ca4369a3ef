#include "bench/measure.h"

#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>

#include "platform/host/database_groups.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"

namespace koli::bench {
namespace {

double Now() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

double BytesRead() {
    FILE* file = fopen("/proc/self/io", "re");
    unsigned long long bytes = 0;
    if (file == nullptr || fscanf(file, "rchar: %llu", &bytes) != 1) Fail("/proc/self/io");
    fclose(file);
    return static_cast<double>(bytes);
}

long PeakKilobytes() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

double Median(const std::vector<Pass>& passes, double (*figure)(const Pass&)) {
    std::vector<double> values;
    std::transform(passes.begin(), passes.end(), std::back_inserter(values), figure);
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

}  // namespace

[[noreturn]] void Fail(const char* what) {
    perror(what);
    exit(2);
}

Pass Measure(const std::function<void()>& work) {
    Pass pass;
    const double bytes = BytesRead();
    const double start = Now();
    work();
    pass.seconds = Now() - start;
    pass.bytes = BytesRead() - bytes;
    pass.peak_kb = PeakKilobytes();
    return pass;
}

Pass InChild(const std::function<Pass()>& measure) {
    void* shared = mmap(nullptr, sizeof(Pass), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) Fail("mmap");
    const pid_t pid = fork();
    if (pid < 0) Fail("fork");
    if (pid == 0) {
        const Pass pass = measure();
        memcpy(shared, &pass, sizeof pass);
        _exit(0);
    }
    int status = 0;
    if (waitpid(pid, &status, 0) != pid || status != 0) Fail("a measured child");
    Pass pass;
    memcpy(&pass, shared, sizeof pass);
    munmap(shared, sizeof pass);
    return pass;
}

double MedianSeconds(const std::vector<Pass>& passes) {
    return Median(passes, [](const Pass& pass) { return pass.seconds; });
}

double MedianBytes(const std::vector<Pass>& passes) {
    return Median(passes, [](const Pass& pass) { return pass.bytes; });
}

double MedianPeak(const std::vector<Pass>& passes) {
    return Median(passes, [](const Pass& pass) { return static_cast<double>(pass.peak_kb); });
}

std::string StoreDirectory() {
    const char* base = getenv("TMPDIR");
    return std::string(base != nullptr ? base : "/tmp") + "/koli-bench/store";
}

void FreshStores() {
    if (const char* server = getenv("KOLI_BENCH_DATABASE")) {
        host::DatabaseDirectorySet(server);
        for (const char* table : {"music", "video", "photo", "playlist", "directory", "photo_info"})
            KOLITruncateTable(table);
        KOLIDBSync();
        return;
    }
    const std::string directory = StoreDirectory();
    host::DatabaseDirectorySet(nullptr);
    std::filesystem::remove_all(directory);
    std::filesystem::create_directories(directory);
    host::DatabaseDirectorySet(directory.c_str());
    MediaInfoDBDelete(kStoreMusic, "/nothing");
    PhotoInfoDBDelete("/nothing");
    KOLIDBSync();
}

// ---- Observer

Observer::Observer(const char* database) {
    const std::string file = StoreDirectory() + "/" + database;
    if (sqlite3_open_v2(file.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) Fail(file.c_str());
    version_ = Number("PRAGMA data_version");
}

Observer::~Observer() {
    sqlite3_close(db_);
}

long Observer::Number(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr) != SQLITE_OK ||
        sqlite3_step(statement) != SQLITE_ROW)
        Fail(sql);
    const long number = static_cast<long>(sqlite3_column_int64(statement, 0));
    sqlite3_finalize(statement);
    return number;
}

bool Observer::HasBeenWritten() {
    const long before = version_;
    version_ = Number("PRAGMA data_version");
    return version_ != before;
}

}  // namespace koli::bench
