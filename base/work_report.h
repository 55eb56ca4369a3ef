// What the daemon is at, for programs that look: how far its batch has come, at which file it is, what went
// wrong last.
//
// It stands in a small file in memory (/run) that is mapped: to tell of a file costs no system call.  A
// forked child does not have the mapping, so it must not tell anything.  A daemon that is killed leaves the
// file behind: it counts as long as the process that it names is the daemon.
#pragma once

#include <sys/types.h>

#include <cstdint>

#include "base/media_info.h"

namespace koli {

/// Times are milliseconds of the epoch, 0 = never.
struct WorkReport {
    int64_t pid;
    int64_t started;  // the daemon

    // The batch at work; with `batch_begun` 0 there is none, and the rest tells of the last one.
    int64_t batch_begun;
    uint64_t batch_device, batch_inode;
    int64_t lines_done, lines;       // of its requests
    int64_t line_begin;              // offset of the line at work in the batch's file
    int64_t files_in_line;           // files that have been looked at, the one at work included
    int64_t files, problems;         // the same of the batch, and how many of them met a problem
    int64_t batch_duration;          // of the last one, milliseconds
    int64_t all_batches, all_lines;  // since the daemon's start, like the next ones
    int64_t all_files, all_problems;

    int64_t problem_time;  // of the last problem
    char path[kPathSize];  // of the file at work; '' = none
    char problem_path[kPathSize];
    char problem_reason[128];
};

/// Makes the file anew, for its owner and the group of the process.  False, with errno set, when that fails:
/// then nothing is told.
bool WorkReportOpen(const char* file);

/// The batch at work: which file it is, and how many lines it has got so far.
void WorkBatchBegin(dev_t device, ino_t inode);
void WorkBatchLines(int64_t lines);
void WorkBatchEnd();

/// The line at work: where in the batch it begins.
void WorkLineBegin(int64_t offset);
void WorkLineEnd();

/// The file at work; each counts once, though both stores look at it.
void WorkFile(const char* path);

/// Something at `path` could not be read or written.
void WorkProblem(const char* path, const char* reason);

/// A copy of what stands in the file.  False when there is none that root or this user has made, or when it
/// is being written all the time.  Its texts are bytes of any kind, with an end.
bool WorkReportRead(const char* file, WorkReport* report);

}  // namespace koli
