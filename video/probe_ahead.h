// Guarded probes that run before their file's turn, on processors that would be idle.
//
// The daemon spends a film's time waiting for its child.  Meanwhile the next files of the folder are probed,
// each in a guarded child of its own.  What such a child has found is taken at its file's turn, with its log
// lines, when the child has ended by itself and the file is still the one that it was.  In any other case it
// is as if there had been none: the file is probed at its turn, and what goes wrong is told then.
#pragma once

#include <sys/types.h>

#include <csignal>
#include <cstdint>
#include <ctime>
#include <memory>

#include "base/file_reading.h"
#include "base/media_info.h"
#include "video/container_probe.h"
#include "video/metamedia.h"

namespace koli {

/// The files of one folder, in the order of their turns.  Objects may lie in each other, as folders do; none
/// leaves a child behind.  There are as many children at a time as processors, the one of the file whose turn
/// it is included, and together they may have the memory of one.
class ProbeAhead {
  public:
    static constexpr int kMost = 16;  // files that are kept in mind; announcing one more ends the first

    /// `processors` 0: as many as this process may use.  With one, nothing runs ahead, nor when the machine's
    /// setting "runahead" is "no".
    explicit ProbeAhead(ProbeFunction probe = MiscMediaInfoProbeFile, int processors = 0);
    ~ProbeAhead();
    ProbeAhead(const ProbeAhead&) = delete;
    ProbeAhead& operator=(const ProbeAhead&) = delete;

    bool IsWanted() const { return processors_ > 1; }

    /// The file `path`, whose record will come as MediaInfoFill leaves it, is to be probed, behind all that
    /// were announced before.  Nothing is started yet.
    void Announce(const char* path);

    /// The innermost of these objects where something runs ahead, else null.
    static ProbeAhead* Current();

    /// The file's turn: waits for its child if there is one, and does what GuardedProbeRun does.  False, and
    /// nothing done, when it has to be probed now.
    bool Take(const char* path, MediaInfo* record, FileReading& reading, int* result);

    /// ProbePollSleep for the child of the file whose turn it is.  Meanwhile others are started; their ends
    /// do not cut it short.
    static void Sleep(pid_t pid, const timespec& interval, const sigset_t& mask);

  private:
    struct File;

    File& FileAt(int index) const;
    void RemoveFirst();
    bool Finish(File& file, MediaInfo* record, FileReading& reading, int* result);
    void RunOn();
    void Start(File& file);
    static int Reap();
    static void KeepWithinMemory(pid_t pid);

    static ProbeAhead* innermost_;
    static int running_;  // children of all these objects
    static int held_;     // files of theirs that were started

    ProbeAhead* const outer_;
    const ProbeFunction probe_;
    const int processors_;
    std::unique_ptr<File[]> files_;  // a ring
    int first_ = 0;
    int count_ = 0;
};

}  // namespace koli
