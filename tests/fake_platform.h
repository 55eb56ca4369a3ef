// The recording fake of the appliance's libraries and of the system log.
//
// Tests link it instead of platform/host and base/log.cpp.  What asks the file system (IsFileExist,
// GetCoverPath, ...) works on real files; what writes to a database or starts a program is recorded, and can
// be told to fail.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/media_info.h"
#include "base/photo_record.h"

namespace koli::test {

struct FakePlatform {
    std::vector<std::string> calls;                   ///< recorded operations: "MediaInfoDBDelete 0 /a/b"
    std::vector<std::pair<int, MediaInfo>> media;     ///< records handed to MediaInfoDBSave, with their type
    std::vector<std::pair<int, PhotoRecord>> photos;  ///< records handed to PhotoInfoDBSave, with their mode
    std::vector<std::string> log;                     ///< log lines, the line number replaced by #
    std::set<std::string> failing;                    ///< names of operations that are to fail
    std::map<std::string, int> pids;                  ///< KLIBReadPidFile: path to pid
    std::map<std::string, std::string> values;        ///< "file:key" to value
    std::map<std::string, std::pair<int, int>> image_sizes;  ///< KOLIIndexImgResGet: path to width, height

    /// Rows that PhotoInfoDBOpen / MediaInfoDBOpen give, by "photo TABLE CONDITION" / "media TYPE CONDITION".
    std::map<std::string, std::vector<std::map<std::string, std::string>>> rows;
    int affected_rows = 1;  ///< what PhotoDBExec returns
    int music_dirty = 0, video_dirty = 0;
    std::string cover_folder;  ///< what GetCoverFolder gives; GetCoverPath puts its files there; '' = none
};

extern FakePlatform fake;

/// A fresh fake and an empty temporary directory for each test.  Everything below it is removed afterwards.
class Sandbox {
  public:
    Sandbox();
    ~Sandbox();
    Sandbox(const Sandbox&) = delete;
    Sandbox& operator=(const Sandbox&) = delete;

    const std::string& dir() const { return dir_; }
    /// Writes a file below the directory, making its folders; returns its full path.
    std::string Write(const std::string& name, const std::string& bytes) const;
    std::string MakeDir(const std::string& name) const;

  private:
    std::string dir_;
};

std::string ReadFile(const std::string& path);

}  // namespace koli::test
