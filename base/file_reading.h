// The file that is being read in the daemon's own process, and what went wrong with it.
#pragma once

#include "base/reading_mark.h"

namespace koli {

inline constexpr int kTroubleSize = 512;  // bytes of a trouble's text, terminator included

/// What is told of a file that must not be opened.
inline constexpr const char kBroughtDown[] =
    "The file has brought the daemon down twice and is not opened until it changes";

/// Wraps the reading of one file: its path stands in the reading mark as long as this lives, and what its
/// readers use is counted from here on (ReadingBegin).  They nest: the innermost is the one that counts.
class FileReading {
  public:
    /// `path` stays the caller's and as it is.
    explicit FileReading(const char* path);
    ~FileReading();
    FileReading(const FileReading&) = delete;
    FileReading& operator=(const FileReading&) = delete;

    /// What an earlier daemon's end says about this file; only with kNothing may it be opened.
    PastReading past() const { return past_; }

    /// What could not be read or written, and why; "" when everything could.
    const char* trouble() const { return trouble_; }
    /// The reason passes by itself: it is worth while to read the file again.
    bool IsPassing() const { return passing_error_ != 0; }

  private:
    friend void FileTrouble(const char* what, int error);
    friend int PassingFileTrouble();

    const char* const path_;
    FileReading* const outer_;
    const PastReading past_;
    int passing_error_ = 0;  // errno, 0 = none
    char trouble_[kTroubleSize];
};

/// Notes for the file that is being read that `what` ("the file cannot be read") has failed with an errno.
/// The first trouble stays, but one that passes takes the place of one that does not.  Does nothing when no
/// file is being read.
void FileTrouble(const char* what, int error);

/// The errno of the trouble of the file that is being read, when it passes by itself, else 0: a child that
/// reads the file tells the daemon.
int PassingFileTrouble();

}  // namespace koli
