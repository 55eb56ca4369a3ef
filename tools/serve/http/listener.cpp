#include "tools/serve/http/listener.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "tools/serve/http/gate.h"

namespace koli::serve {
namespace {

constexpr int kHandedOver = 3;  // the first descriptor of a service manager
constexpr int kBacklog = 1024;

struct SocketAddress {
    sockaddr_storage any{};
    socklen_t length = 0;  // 0 = none
};

/// 0 to 65535, -1 for anything else.
int PortOf(const std::string& text) {
    if (text.empty() || text.size() > 5 || text.find_first_not_of("0123456789") != std::string::npos)
        return -1;
    const long port = strtol(text.c_str(), nullptr, 10);
    return port > 65535 ? -1 : static_cast<int>(port);
}

SocketAddress AddressOf(const std::string& text) {
    const size_t colon = text.rfind(':');
    const int port = colon == std::string::npos ? -1 : PortOf(text.substr(colon + 1));
    std::string host = text.substr(0, colon);
    if (port < 0) return {};
    if (host == "localhost") host = "127.0.0.1";
    SocketAddress address;
    auto& v4 = reinterpret_cast<sockaddr_in&>(address.any);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(address.any);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
        if (inet_pton(AF_INET6, host.substr(1, host.size() - 2).c_str(), &v6.sin6_addr) != 1) return {};
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(static_cast<uint16_t>(port));
        address.length = sizeof v6;
    } else if (inet_pton(AF_INET, host.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(static_cast<uint16_t>(port));
        address.length = sizeof v4;
    }
    return address;
}

bool IsListening(int fd) {
    int is_listening = 0;
    socklen_t length = sizeof is_listening;
    return getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &is_listening, &length) == 0 && is_listening != 0;
}

}  // namespace

UniqueFd ListenOn(const std::string& text, std::string* error) {
    const SocketAddress address = AddressOf(text);
    if (address.length == 0) {
        *error = text + ": not an address with its port, such as 127.0.0.1:8080, [::1]:8080 or 0.0.0.0:8080";
        return {};
    }
    UniqueFd listener(socket(address.any.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    if (listener.valid() && setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
        bind(listener.get(), reinterpret_cast<const sockaddr*>(&address.any), address.length) == 0 &&
        listen(listener.get(), kBacklog) == 0)
        return listener;
    *error = "cannot listen on " + text + ": " + strerror(errno);
    return {};
}

UniqueFd TakeListener(std::string* error) {
    const char* const pid = getenv("LISTEN_PID");
    const char* const count = getenv("LISTEN_FDS");
    const bool is_mine = pid != nullptr && count != nullptr && std::to_string(getpid()) == pid;
    const bool is_one = is_mine && strcmp(count, "1") == 0;
    for (const char* name : {"LISTEN_PID", "LISTEN_FDS", "LISTEN_FDNAMES"})
        unsetenv(name);
    if (!is_mine) return {};
    if (!is_one || !IsListening(kHandedOver)) {
        *error = "one listening socket is to be handed over, and nothing else";
        return {};
    }
    fcntl(kHandedOver, F_SETFD, FD_CLOEXEC);
    return UniqueFd(kHandedOver);
}

bool IsLoopback(int listener) {
    return LocalEndOf(listener).is_loopback;
}

std::string BrowserAddress(int listener) {
    LocalEnd end = LocalEndOf(listener);
    char machine[HOST_NAME_MAX + 1] = "localhost";
    if (end.address == "0.0.0.0" || end.address == "::" || end.address.empty()) {
        gethostname(machine, sizeof machine - 1);
        end.address = machine;
    }
    const bool is_v6 = end.address.find(':') != std::string::npos;
    return "http://" + (is_v6 ? "[" + end.address + "]" : end.address) + ":" + std::to_string(end.port) + "/";
}

}  // namespace koli::serve
