#include "tools/ctl/status.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>

#include "platform/host/file_times.h"
#include "platform/host/schema.h"
#include "platform/kolisdk.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_writer.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

std::string TimeText(time_t when) {
    char text[32];
    host::WriteLocalTime(when, text, sizeof text);
    return text;
}

time_t ChangeTime(const std::string& file) {
    struct stat status;
    return stat(file.c_str(), &status) == 0 ? status.st_mtime : 0;
}

/// Lines of a queue file; -1 when there is none.
int64_t CountLines(const std::string& file) {
    const UniqueFd fd(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    struct stat status;
    if (!fd.valid() || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) return -1;
    char block[65536];
    int64_t lines = 0;
    char last = '\n';
    ssize_t length = 0;
    // No further than the file was long: writers go on.
    for (off_t at = 0; at < status.st_size && (length = pread(fd.get(), block, sizeof block, at)) > 0;
         at += length) {
        lines += std::count(block, block + length, '\n');
        last = block[length - 1];
    }
    return last == '\n' ? lines : lines + 1;
}

/// Version of the kernel's file rules, 0 = none.
int64_t LandlockVersion() {
    const auto version =
        syscall(SYS_landlock_create_ruleset, nullptr, size_t{0}, LANDLOCK_CREATE_RULESET_VERSION);
    return std::max<int64_t>(version, 0);
}

void AddDaemon(const Context& context, int pid, Record* record) {
    const Places& places = context.places;
    record->emplace_back("daemon", pid > 0 ? "running" : "not running");
    record->emplace_back("pid", int64_t{pid});
    record->emplace_back("since", pid > 0 ? TimeText(ChangeTime(places.pid_file)) : "");
    record->emplace_back("requests_waiting", std::max<int64_t>(CountLines(places.queue), 0));
    const int64_t batch = CountLines(places.batch);
    record->emplace_back("batch", batch < 0 ? "none" : pid > 0 ? "running" : "left over");
    record->emplace_back("requests_in_batch", std::max<int64_t>(batch, 0));
}

void AddDatabases(const StoreReader& store, Record* record) {
    record->emplace_back("databases", store.directory());
    for (const char* name : {"media.db", "photo.db"}) {
        const std::string file = store.directory() + "/" + name;
        const time_t changed = std::max(ChangeTime(file), ChangeTime(file + "-wal"));
        record->emplace_back(std::string(name) + "_changed",
                             changed > 0 ? TimeText(changed) : "not created yet");
    }
    for (const char* table : host::kMediaTables)
        record->emplace_back(std::string("rows_") + table, store.CountBelow(table, ""));
    for (const char* table : host::kPhotoTables)
        record->emplace_back(std::string("rows_") + table, store.CountBelow(table, ""));
    record->emplace_back("unparsable", store.CountBelow("problem", ""));
}

void AddHost(Record* record) {
    record->emplace_back("photo_library",
                         BlKOLIFileCheckKeyValue(paths::kDefaults, "supportphoto", "yes", 0) != 0);
    record->emplace_back("probe_call_filter", access("/proc/sys/kernel/seccomp/actions_avail", F_OK) == 0);
    record->emplace_back("probe_file_rules_version", LandlockVersion());
}

}  // namespace

int Status(const Context& context) {
    StoreReader store;
    const bool is_readable = OpenStore(context, &store);
    const int pid = DaemonPid(context.places.pid_file);
    Record record;
    AddDaemon(context, pid, &record);
    if (is_readable) AddDatabases(store, &record);
    AddHost(&record);
    PrintRecord(record, context.json);
    if (!is_readable) return kExitDatabase;
    return StoreResult(store, pid > 0 ? kExitDone : kExitNoDaemon);
}

}  // namespace koli::ctl
