#include "tools/serve/picture/maker_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

namespace koli::serve {
namespace {

constexpr int kStartMs = 60'000;  // that a busy machine may take to load the libraries
constexpr int kFreeDescriptor = 16;

/// A copy with a number that no standard or agreed descriptor has.
UniqueFd Aside(int descriptor) {
    return UniqueFd(fcntl(descriptor, F_DUPFD_CLOEXEC, kFreeDescriptor));
}

/// What posix_spawn is told.
struct SpawnPlan {
    SpawnPlan(int socket, int slots) {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, socket, STDERR_FILENO + 1);
        posix_spawn_file_actions_adddup2(&actions, slots, STDERR_FILENO + 2);
        posix_spawnattr_init(&attributes);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnPlan() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

}  // namespace

std::string MakerProgram() {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? "" : (self.parent_path() / KOLI_MAKER_PATH).string();
}

bool MakerProcess::Start(const std::string& program, const PictureSlots& slots, std::string* error) {
    End();
    if (!Spawn(program, slots.file(), error)) return false;
    if (IsReady()) return true;
    *error = Wait() == MakerExit::kUnguarded ? "this kernel has nothing that guards a child"
                                             : "the program that makes them does not start";
    return false;
}

bool MakerProcess::Spawn(const std::string& program, int slots, std::string* error) {
    int ends[2] = {-1, -1};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) {
        *error = strerror(errno);
        return false;
    }
    socket_ = UniqueFd(ends[0]);
    const UniqueFd makers_end(ends[1]), socket_aside = Aside(ends[1]), slots_aside = Aside(slots);
    const SpawnPlan plan(socket_aside.get(), slots_aside.get());
    std::string name = "koliindexpictures";
    char* const arguments[] = {name.data(), nullptr};
    char* const environment[] = {nullptr};
    const int result =
        posix_spawn(&pid_, program.c_str(), &plan.actions, &plan.attributes, arguments, environment);
    if (result == 0) return true;
    pid_ = 0;
    socket_ = {};
    *error = program + ": " + strerror(result);
    return false;
}

bool MakerProcess::IsReady() const {
    pollfd source{socket_.get(), POLLIN, 0};
    PictureAnswer answer{};
    return poll(&source, 1, kStartMs) > 0 && AnswerReceive(socket_.get(), &answer) &&
           answer.slot == PictureAnswer::kReady;
}

void MakerProcess::End() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);  // it may be held by nothing, and its children end with it
    Wait();
}

/// For its end, which must be near.  Returns its exit status, or -1.
int MakerProcess::Wait() {
    socket_ = {};
    int status = 0;
    const pid_t ended = waitpid(std::exchange(pid_, 0), &status, 0);
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace koli::serve
