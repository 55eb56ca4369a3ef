#include "daemon/background.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

namespace koli {
namespace {

/// Waits until nobody has the other end of the pipe any more, and ends as the child did.
[[noreturn]] void WaitAndLeave(pid_t child, int pipe) {
    char byte;
    while (read(pipe, &byte, 1) < 0 && errno == EINTR) {
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

}  // namespace

bool BackgroundEnter(int* starter) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    signal(SIGCHLD, SIG_DFL);  // who ignores it learns nothing of a child's end
    const pid_t child = fork();
    if (child > 0) {
        close(ends[1]);
        WaitAndLeave(child, ends[0]);
    }
    close(ends[0]);
    if (child == 0 && daemon(0, 0) == 0) {
        *starter = ends[1];
        return true;
    }
    const int error = errno;
    close(ends[1]);
    errno = error;
    return false;
}

void StarterRelease(int starter) {
    close(starter);
}

}  // namespace koli
