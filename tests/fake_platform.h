// The recording fake of the appliance's libraries and of the system log.
//
// Tests link it instead of the databases of platform/host and of base/log.cpp.  What writes to a database or
// starts a program is recorded, and can be told to fail; what works on files (covers, captions, pictures,
// ...) is the host platform's own.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "base/file_reading.h"
#include "base/media_info.h"
#include "base/photo_record.h"
#include "platform/kolidb.h"
#include "tests/host_temp_dir.h"

namespace koli::test {

using Lines = std::vector<std::string>;

struct FakePlatform {
    std::function<void(const std::string& operation)> at_call;  ///< called for each operation when it is set
    Lines calls;                                      ///< recorded operations: "MediaInfoDBDelete 0 /a/b"
    std::vector<std::pair<int, MediaInfo>> media;     ///< records handed to MediaInfoDBSave, with their type
    std::vector<std::pair<int, PhotoRecord>> photos;  ///< records handed to PhotoInfoDBSave, with their mode
    Lines log;                                        ///< log lines, the line number replaced by #
    std::set<std::string> failing;                    ///< names of operations that are to fail
    std::map<std::string, int> results;               ///< what others than 0 return, by their names
    std::map<std::string, std::string> values;  ///< KLIBFileGetKeyValue: "file:key" to value, '' = not set
    int unreadable = 0;                         ///< why no settings can be read (an errno)

    int refusing = 0;                             ///< KOLIDBRefusing
    std::set<std::string> unsaved;                ///< paths that MediaRebuildSavedLast does not know
    KOLIBatchMark mark{};                         ///< of the photo database
    std::map<std::string, std::string> settings;  ///< of the photo database
};

inline FakePlatform fake;

inline const char* Word(const char* text) {
    return text != nullptr ? text : "(null)";
}
template <typename T>
const T& Word(const T& value) {
    return value;
}

/// Records a call ("IndexOnePath /a/b.mp3 1"); returns its result.
template <typename... Words>
int Record(const std::string& operation, const Words&... words) {
    std::ostringstream call;
    call << operation;
    ((call << ' ' << Word(words)), ...);
    fake.calls.push_back(call.str());
    if (fake.at_call) fake.at_call(operation);
    return fake.failing.count(operation) != 0 ? -1 : fake.results[operation];
}

/// The reading of a file, as an argument: `FlacFileAdd(path, Reading())`.
struct Reading {
    explicit Reading(const char* path = "", int64_t limit = FileReading::kLimit)
        : file(path, nullptr, limit) {}
    operator FileReading&() { return file; }  // NOLINT(google-explicit-constructor)
    FileReading file;
};

/// A fresh fake and an empty directory.
struct Sandbox : TempDir {
    Sandbox() { fake = {}; }
};

}  // namespace koli::test
