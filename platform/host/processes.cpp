// Other processes: who is running, and running a program.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>

#include "base/regular_file.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"

namespace {

constexpr size_t kPidTextMax = 32;  // bytes of a pid file: a number and its white space

/// The number in `text` to `end`: digits, then nothing but white space; 0 when it is anything else.
int ParsePid(const char* text, const char* end) {
    int pid = 0;
    const auto [behind, error] = std::from_chars(text, end, pid);
    if (error != std::errc() || pid <= 0) return 0;
    for (const char* at = behind; at < end; ++at)
        if (*at != '\n' && *at != '\r' && *at != ' ' && *at != '\t') return 0;
    return pid;
}

bool IsRunning(int pid) {
    return kill(pid, 0) == 0 || errno == EPERM;
}

/// Starts a program whose signals are as after a login: nothing blocked, nothing ignored.  posix_spawn does
/// not copy the daemon's memory map, which makes its cost independent of the daemon's size.  Returns its pid,
/// or -1.
pid_t Start(const char* program, char* const arguments[]) {
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0) return -1;
    sigset_t defaults, none;
    sigfillset(&defaults);
    sigdelset(&defaults, SIGKILL);
    sigdelset(&defaults, SIGSTOP);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    pid_t child = -1;
    if (posix_spawn(&child, program, nullptr, &attributes, arguments, environ) != 0) child = -1;
    posix_spawnattr_destroy(&attributes);
    return child;
}

/// Waits for the end of a child.  Returns its exit status, or -1 when a signal ended it.
int ExitStatusOf(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

extern "C" {

int KLIBReadPidFile(const char* path) {
    const koli::RegularFile file(path);
    char text[kPidTextMax];
    if (!file.ok() || file.size() > int64_t{sizeof text}) return 0;
    const ssize_t length = koli::ReadAt(file.descriptor(), 0, text, sizeof text);
    const int pid = length > 0 ? ParsePid(text, text + length) : 0;
    return pid > 0 && IsRunning(pid) ? pid : 0;
}

int KLIBExec(const char* program, const char* arg1, const char* arg2, const char* arg3, const char* arg4) {
    // A program that is not installed costs one question, and the store's open group of rows goes on.
    if (program == nullptr || access(program, X_OK) != 0) return -1;
    KOLIDBFlush();
    // posix_spawn's type is older than const; it changes nothing.  The first null ends the list.
    char* arguments[] = {const_cast<char*>(program), const_cast<char*>(arg1), const_cast<char*>(arg2),
                         const_cast<char*>(arg3),    const_cast<char*>(arg4), nullptr};
    const pid_t child = Start(program, arguments);
    return child > 0 ? ExitStatusOf(child) : -1;
}

}  // extern "C"
