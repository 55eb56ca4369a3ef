#include "bench/bare_loop.h"

#include <fcntl.h>
#include <libexif/exif-data.h>
#include <libexif/exif-loader.h>
#include <sqlite3.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>

#include "platform/koliindex.h"

namespace koli::bench {
namespace {

constexpr int kColumns = 31;
constexpr long kRowsPerTransaction = 100;

[[noreturn]] void Fail(const char* what) {
    perror(what);
    exit(2);
}

/// A table of 31 columns, filled by one prepared upsert.
class Rows {
  public:
    explicit Rows(const std::string& file) {
        for (const char* suffix : {"", "-wal", "-shm"})
            unlink((file + suffix).c_str());
        if (sqlite3_open(file.c_str(), &db_) != SQLITE_OK) Fail(file.c_str());
        std::string columns = "path TEXT PRIMARY KEY", marks = "?", set;
        for (int i = 1; i < kColumns; ++i) {
            const std::string name = "c" + std::to_string(i);
            columns += ", " + name;
            marks += ",?";
            set += (i > 1 ? "," : "") + name + "=excluded." + name;
        }
        Execute("PRAGMA journal_mode=WAL");
        Execute("PRAGMA synchronous=NORMAL");
        Execute(("CREATE TABLE media(" + columns + ")").c_str());
        const std::string upsert =
            "INSERT INTO media VALUES(" + marks + ") ON CONFLICT(path) DO UPDATE SET " + set;
        if (sqlite3_prepare_v2(db_, upsert.c_str(), -1, &statement_, nullptr) != SQLITE_OK) Fail("prepare");
    }
    ~Rows() {
        if (count_ % kRowsPerTransaction != 0) Execute("COMMIT");
        sqlite3_finalize(statement_);
        sqlite3_close(db_);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    void Upsert(const std::string& path) {
        if (count_ % kRowsPerTransaction == 0) Execute("BEGIN IMMEDIATE");
        sqlite3_bind_text(statement_, 1, path.c_str(), -1, SQLITE_STATIC);
        for (int i = 2; i <= kColumns; ++i) {
            if (i % 2 == 0)
                sqlite3_bind_text(statement_, i, "A text of usual length", -1, SQLITE_STATIC);
            else
                sqlite3_bind_int64(statement_, i, count_ * i);
        }
        if (sqlite3_step(statement_) != SQLITE_DONE) Fail("upsert");
        sqlite3_reset(statement_);
        if (++count_ % kRowsPerTransaction == 0) Execute("COMMIT");
    }

  private:
    void Execute(const char* sql) {
        if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK) Fail(sql);
    }
    sqlite3* db_ = nullptr;
    sqlite3_stmt* statement_ = nullptr;
    long count_ = 0;
};

Pass Loop(const std::string& dir, const char* extension, const std::string& database,
          const std::function<double(const std::string&)>& read_one) {
    Pass pass;
    const double start = Now();
    {
        Rows rows(database);
        for (const auto& entry : std::filesystem::recursive_directory_iterator(dir)) {
            const std::string path = entry.path().string();
            const size_t length = strlen(extension);
            if (path.size() <= length || strcasecmp(path.c_str() + path.size() - length, extension) != 0 ||
                !entry.is_regular_file())
                continue;
            pass.megabytes += read_one(path) / 1e6;
            rows.Upsert(path);
            ++pass.files;
        }
    }
    pass.seconds = Now() - start;
    return pass;
}

double SearchFirstQuarter(const std::string& path) {
    static constexpr char kTag[] = {'X', 'i', 'n', 'g'};
    static constexpr size_t kCarry = sizeof kTag - 1;
    static constexpr size_t kBlock = 16384;
    static char buffer[kCarry + kBlock];
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    struct stat status;
    if (fstat(fd, &status) != 0) Fail("fstat");
    const size_t wanted = static_cast<size_t>(status.st_size / 4);
    size_t got = 0, carried = 0;
    while (got < wanted) {
        const ssize_t count = read(fd, buffer + carried, std::min(kBlock, wanted - got));
        if (count <= 0) break;
        got += static_cast<size_t>(count);
        const size_t held = carried + static_cast<size_t>(count);
        if (memmem(buffer, held, kTag, sizeof kTag) != nullptr) break;
        carried = std::min(held, kCarry);
        memmove(buffer, buffer + held - carried, carried);
    }
    close(fd);
    return static_cast<double>(got);
}

double LoadExifAndSize(const std::string& path) {
    ExifLoader* loader = exif_loader_new();
    exif_loader_write_file(loader, path.c_str());
    ExifData* data = exif_loader_get_data(loader);
    exif_loader_unref(loader);
    if (data != nullptr) exif_data_unref(data);
    int width = 0, height = 0;
    KOLIIndexImgResGet(path.c_str(), &width, &height);
    return 0;
}

}  // namespace

double Now() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

Pass Mp3BareLoop(const std::string& dir, const std::string& database) {
    return Loop(dir, ".mp3", database, SearchFirstQuarter);
}

Pass PhotoBareLoop(const std::string& dir, const std::string& database) {
    return Loop(dir, ".jpg", database, LoadExifAndSize);
}

}  // namespace koli::bench
