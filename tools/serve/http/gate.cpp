#include "tools/serve/http/gate.h"

#include <arpa/inet.h>
#include <limits.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "tools/serve/http/small_letters.h"

namespace koli::serve {
namespace {

constexpr int kPort = 80;  // where none is named

/// `host` without its port, which goes to `port` as text ("" for none); an IPv6 address has no brackets then.
std::string_view WithoutPort(std::string_view host, std::string_view* port) {
    const size_t bracket = host.starts_with('[') ? host.find(']') : std::string_view::npos;
    const size_t colon = host.find(':', bracket == std::string_view::npos ? 0 : bracket);
    *port = colon == std::string_view::npos ? std::string_view() : host.substr(colon + 1);
    const std::string_view name = host.substr(0, colon);
    return bracket != std::string_view::npos && name.size() == bracket + 1 ? name.substr(1, bracket - 1)
                                                                           : name;
}

/// An address as the system writes it; what is none stays as it is.
std::string Canonical(std::string_view name) {
    std::string text(name);
    in6_addr address;
    char canonical[INET6_ADDRSTRLEN];
    if (inet_pton(AF_INET6, text.c_str(), &address) != 1) return text;
    return inet_ntop(AF_INET6, &address, canonical, sizeof canonical);
}

/// Another site's page may lead here by a link, which changes nothing, and by nothing else.
bool IsForeignFetch(const Request& request) {
    const std::string& site = request.headers.Value("sec-fetch-site");
    if (site.empty() || site == "same-origin" || site == "none") return false;
    return request.method == "POST" || request.headers.Value("sec-fetch-mode") != "navigate" ||
           request.headers.Value("sec-fetch-dest") != "document";
}

/// An origin is "http://HOST", behind a proxy "https://HOST".
bool IsOriginOf(const std::string& origin, const std::string& host) {
    const std::string small = SmallLetters(origin), own = SmallLetters(host);
    return !own.empty() && (small == "http://" + own || small == "https://" + own);
}

}  // namespace

LocalEnd LocalEndOf(int fd) {
    sockaddr_storage any{};
    socklen_t length = sizeof any;
    char text[INET6_ADDRSTRLEN] = "";
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&any), &length) != 0) return {};
    if (any.ss_family == AF_INET) {
        const auto& v4 = reinterpret_cast<const sockaddr_in&>(any);
        inet_ntop(AF_INET, &v4.sin_addr, text, sizeof text);
        return {text, (ntohl(v4.sin_addr.s_addr) >> 24) == 127, ntohs(v4.sin_port)};
    }
    if (any.ss_family != AF_INET6) return {};
    const auto& v6 = reinterpret_cast<const sockaddr_in6&>(any);
    const int port = ntohs(v6.sin6_port);
    if (IN6_IS_ADDR_V4MAPPED(&v6.sin6_addr)) {
        inet_ntop(AF_INET, v6.sin6_addr.s6_addr + 12, text, sizeof text);
        return {text, v6.sin6_addr.s6_addr[12] == 127, port};
    }
    inet_ntop(AF_INET6, &v6.sin6_addr, text, sizeof text);
    return {text, IN6_IS_ADDR_LOOPBACK(&v6.sin6_addr) != 0, port};
}

Gate::Gate(const std::vector<std::string>& names) {
    for (const std::string& name : names)
        names_.push_back(SmallLetters(name));
    char machine[HOST_NAME_MAX + 1] = "";
    if (gethostname(machine, sizeof machine - 1) != 0 || *machine == '\0') return;
    machines_ = {SmallLetters(machine), SmallLetters(machine) + ".local"};
}

bool Gate::IsOurs(std::string_view host, const LocalEnd& end) const {
    std::string_view port;
    const std::string whole = SmallLetters(std::string(host));
    const std::string name = Canonical(WithoutPort(whole, &port));
    if (std::find(names_.begin(), names_.end(), whole) != names_.end() ||
        std::find(names_.begin(), names_.end(), name) != names_.end())
        return true;
    if (port != std::to_string(end.port) && !(port.empty() && end.port == kPort)) return false;
    // A name that leads here by somebody else's doing is not among these: addresses are nobody's to give.
    if (!end.address.empty() && name == end.address) return true;
    if (end.is_loopback && (name == "localhost" || name == "127.0.0.1" || name == "::1")) return true;
    return std::find(machines_.begin(), machines_.end(), name) != machines_.end();
}

const char* Gate::Refusal(const Request& request, const LocalEnd& end) const {
    for (const char* name : {"host", "origin", "sec-fetch-site", "sec-fetch-mode", "sec-fetch-dest"})
        if (request.headers.Count(name) > 1) return "It says twice where it comes from.";
    const std::string& host = request.headers.Value("host");
    if (request.headers.Has("host") && !IsOurs(host, end))
        return "This server is not known by that name (see --name).";
    if (request.headers.Has("origin") && !IsOriginOf(request.headers.Value("origin"), host))
        return "A page of another site asks for this.";
    if (IsForeignFetch(request)) return "A page of another site asks for this.";
    return nullptr;
}

}  // namespace koli::serve
