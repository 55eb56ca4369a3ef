#include "tools/ctl/queue_service.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tools/ctl/membership.h"

namespace koli::ctl {
namespace {

constexpr size_t kAnswerMax = 1024;  // bytes
constexpr const char kNoAnswer[] = "the queue's service gives no answer";
constexpr int kMostAttempts = 6;    // when it serves as many callers as it may
constexpr int kFirstPauseMs = 100;  // then twice as long each time

bool IsRefusal(int error) {
    return error == EACCES || error == EPERM || error == EROFS;
}

UniqueFd Connect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return {};
    path.copy(address.sun_path, path.size());
    UniqueFd fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.valid() || connect(fd.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return {};
    return fd;
}

/// What the service does not want it does not read; its answer comes all the same.  False when something was
/// not sent.
bool SendWhole(int fd, const std::string& text) {
    for (size_t sent = 0; sent < text.size();) {
        const ssize_t count = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) return false;
        sent += static_cast<size_t>(count);
    }
    return shutdown(fd, SHUT_WR) == 0;
}

char LetterOf(Wake wake) {
    return static_cast<char>('0' + static_cast<int>(wake));
}

/// Room for one descriptor beside the bytes of a message.
union Control {
    cmsghdr header;
    char bytes[CMSG_SPACE(sizeof(int))];
};

/// The answer, and the descriptor that came with it; "" with errno set when there is none.
std::string ReceiveAnswer(int fd, UniqueFd* file) {
    char text[kAnswerMax];
    iovec block{text, sizeof text};
    Control control{};
    msghdr message{};
    message.msg_iov = &block;
    message.msg_iovlen = 1;
    message.msg_control = &control;
    message.msg_controllen = sizeof control;
    ssize_t length = 0;
    do {
        length = recvmsg(fd, &message, MSG_CMSG_CLOEXEC);
    } while (length < 0 && errno == EINTR);
    const cmsghdr* part = CMSG_FIRSTHDR(&message);
    if (part != nullptr && part->cmsg_type == SCM_RIGHTS && part->cmsg_len == CMSG_LEN(sizeof(int))) {
        int received = -1;
        memcpy(&received, CMSG_DATA(part), sizeof received);
        *file = UniqueFd(received);
    }
    return {text, length > 0 ? static_cast<size_t>(length) : 0};
}

/// Says all to the service and takes its answer.  False when it has closed the connection without having
/// read to the end: then it has done nothing, and may have more time for the next caller.
bool Converse(int fd, const std::string& lines, std::string* answer, UniqueFd* file) {
    const bool is_sent = SendWhole(fd, lines + kEndOfRequests);
    errno = 0;
    *answer = ReceiveAnswer(fd, file);
    return !answer->empty() || (is_sent && errno != ECONNRESET);
}

/// Asks the service, after a direct attempt was refused with `refusal`.
Queued Ask(const Places& places, const std::string& lines, const std::string& refusal) {
    Queued queued{{{}, kNoAnswer}, Wake::kNotPermitted};
    std::string answer;
    for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
        const UniqueFd fd = Connect(places.service);
        if (!fd.valid()) return {{{}, refusal + JoinHint(places.service)}, Wake::kNotPermitted};
        if (Converse(fd.get(), lines, &answer, &queued.batch.file)) break;
        const int pause = kFirstPauseMs << attempt;
        const timespec time{pause / 1000, pause % 1000 * 1'000'000L};
        nanosleep(&time, nullptr);
    }
    if (answer.size() > 1 && answer[0] == 'E') queued.batch.error = answer.substr(1);
    if (answer.size() < 2 || answer[0] != 'Q') return queued;
    queued.batch.error.clear();
    queued.batch.begin = strtoll(answer.c_str() + 2, nullptr, 10);
    queued.batch.end = queued.batch.begin + static_cast<int64_t>(lines.size());
    for (const Wake wake : {Wake::kWoken, Wake::kNotRunning})
        if (answer[1] == LetterOf(wake)) queued.wake = wake;
    return queued;
}

}  // namespace

Queued QueueSubmit(const Places& places, const std::string& lines) {
    QueuedBatch batch = QueueAppend(places.queue, lines);
    if (!batch.file.valid() && IsRefusal(batch.error_number)) return Ask(places, lines, batch.error);
    if (!batch.file.valid()) return {std::move(batch), Wake::kNotRunning};
    return {std::move(batch), WakeSubmit(places)};
}

Wake WakeSubmit(const Places& places) {
    const Wake wake = DaemonWake(places.pid_file);
    return wake == Wake::kNotPermitted ? Ask(places, "", "").wake : wake;
}

bool AnswerSend(int peer, const Queued& queued) {
    std::string text = "E" + queued.batch.error;
    if (queued.batch.error.empty())
        text = std::string("Q") + LetterOf(queued.wake) + std::to_string(queued.batch.begin);
    text.resize(std::min(text.size(), kAnswerMax));
    iovec block{text.data(), text.size()};
    Control control{};
    msghdr message{};
    message.msg_iov = &block;
    message.msg_iovlen = 1;
    const std::string name = "/proc/self/fd/" + std::to_string(queued.batch.file.get());
    const UniqueFd file(queued.batch.file.valid() ? open(name.c_str(), O_PATH | O_CLOEXEC) : -1);
    if (file.valid()) {
        message.msg_control = &control;
        message.msg_controllen = sizeof control;
        cmsghdr* part = CMSG_FIRSTHDR(&message);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = SCM_RIGHTS;
        part->cmsg_len = CMSG_LEN(sizeof(int));
        const int handed = file.get();
        memcpy(CMSG_DATA(part), &handed, sizeof handed);
    }
    return sendmsg(peer, &message, MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

}  // namespace koli::ctl
