// A process that runs ahead of the walk on a cold disk, so that the walk does not wait for one request after
// the other.
#pragma once

#include <sys/types.h>

namespace koli {

/// Brings files into the page cache that will be indexed soon: their folder's and their own entries, and what
/// their readers begin with.  It looks for no more than where that is, and keeps nothing; without it
/// everything is as it is with it.  The process starts with the first path and ends with this object, unless
/// the machine's setting "runahead" is "no".
///
/// It is a process, because looks cannot be asked for, only waited for, and what hangs on a dead share must
/// not hang the daemon; its threads wait for several files at a time.
class Forerunner {
  public:
    Forerunner();
    ~Forerunner();
    Forerunner(const Forerunner&) = delete;
    Forerunner& operator=(const Forerunner&) = delete;

    /// Asked at each entry of a walk: whether it has waited for something lately, as it does for a cold disk.
    /// Was it for something else, the process tells so by not having to wait.
    bool IsWanted();

    /// What has been waited for since was no disk of the walk's: a child.
    void ForgetWaits() { waits_ = -1; }

    /// The file at `path`, or, with a '/' behind it, the folder will be indexed soon.  Does not wait; what
    /// cannot be taken now is left out.
    void Announce(const char* path);

  private:
    bool Start();

    int paths_ = -1;   // where the process takes a path with each datagram, and answers when it has waited
    pid_t pid_ = 0;    // 0 = not started, -1 = it is not to be, or could not be
    long waits_;       // of the daemon, when IsWanted was asked last
    int entries_ = 0;  // for so many more it is wanted
};

}  // namespace koli
