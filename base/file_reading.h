// The file that is being read in the daemon's own process: what that may cost, how it goes, and what went
// wrong with it.
//
// Files are untrusted: any loop over their bytes can be made long.  So every reader asks here before each
// read, and once a file has had its processor time all its reads fail, as those of a damaged file do.
#pragma once

#include <cstdint>

#include "base/reading_mark.h"

namespace koli {

/// What a failure means for the file; of two the greater one counts.
enum class FailureKind : uint8_t {
    kNone,
    kUnparsed,  // why there is no metadata, should there be none
    kTrouble,   // a problem whatever else was read of the file
    kPassing,   // the same, and its reason passes by itself: it is worth while to read the file again
};

/// Why something of a file could not be read or written, as a person would say it and without the path: "the
/// container could not be opened".  The same fault has the same reason.
struct Failure {
    FailureKind kind;
    int error;         // the errno that it tells, 0 = none
    char reason[128];  // '' = none
};

/// The reading of one file: it lives where its outcome is decided, and the readers are handed it.  Its path
/// stands in the reading mark as long as it lives, and the work report tells of it; there is one at a time.
class FileReading {
  public:
    /// Nanoseconds of this process's processor time that the reading of one file may take.
    static constexpr int64_t kLimit = 10'000'000'000;

    /// `path` stays the caller's and as it is.  `tick`, when given, is called before each read: what must not
    /// wait for a file that takes long.
    explicit FileReading(const char* path, void (*tick)() = nullptr, int64_t limit = kLimit);

    /// In a child, which has its own file to read: touches no mark.
    enum InChild { kInChild };
    FileReading(const char* path, InChild);
    ~FileReading();
    FileReading(const FileReading&) = delete;
    FileReading& operator=(const FileReading&) = delete;

    const char* path() const { return path_; }
    /// What an earlier daemon's end says about this file; only with kNothing may it be opened.
    PastReading past() const { return past_; }

    /// Asked before each read: false once the file has had its time, which is then logged and a trouble.
    /// Costs no system call until the file has taken that long by the clock.
    bool MayGoOn();

    /// A read, or the opening, failed with this errno.  The first one of a file that passes
    /// (base/passing_error.h) is logged.
    void ReadFailed(int error);
    /// The same without the line, for callers that have one of their own, and for a child that reads the
    /// file.
    void ReadFailedUnlogged(int error);
    /// True while every read of the file succeeded: what was found in it is all that there is to find.
    bool IsWhole() const { return !is_spent_ && !has_failed_; }

    /// Notes why the file cannot be parsed.  Of two failures that mean the same the first one stays.
    void CannotParse(const char* reason) { Note(FailureKind::kUnparsed, reason, 0); }
    /// Notes that something of the file, or that goes with it ("a caption cannot be read"), failed with an
    /// errno, 0 for none.
    void Trouble(const char* what, int error = 0);
    /// Takes over what a child that reads the file has met; its reason must have an end.
    void TakeOver(const Failure& of_child);

    const Failure& failure() const { return failure_; }

  private:
    void Note(FailureKind kind, const char* what, int error);

    const char* const path_;
    const bool is_marked_;
    void (*const tick_)();
    const PastReading past_;
    const int64_t limit_;
    const int64_t begun_;  // processor time, ns
    int64_t next_look_;    // clock, ns; before it the limit cannot have been reached
    bool is_spent_ = false;
    bool has_failed_ = false;
    Failure failure_ = {};
};

}  // namespace koli
