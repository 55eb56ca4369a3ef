#include "platform/host/postgresql/servers.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <libpq-fe.h>
#include <netdb.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <memory>
#include <new>

namespace koli::host {
namespace {

constexpr size_t kAnswerMax = 65536;
constexpr char kFailure = '!';  // before a reason; what is found has no such line
constexpr const char* kOfServer[] = {"host", "hostaddr", "port"};

int64_t NowMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

std::vector<std::string> Parts(const std::string& list) {
    std::vector<std::string> parts;
    for (size_t at = 0; at <= list.size();) {
        const size_t end = std::min(list.find(',', at), list.size());
        parts.push_back(list.substr(at, end - at));
        at = end + 1;
    }
    return parts;
}

bool IsName(const std::string& host) {
    unsigned char address[sizeof(in6_addr)];
    return !host.empty() && host[0] != '/' && host[0] != '@' &&
           inet_pton(AF_INET, host.c_str(), address) != 1 && inet_pton(AF_INET6, host.c_str(), address) != 1;
}

/// Whether a resolver, or libpq's files, have to be asked.
bool IsOpen(const Settings& settings) {
    if (!ValueOf(settings, "hostaddr").empty()) return false;
    const std::string hosts = ValueOf(settings, "host");
    if (hosts.empty())
        return !ValueOf(settings, "service").empty() || getenv("PGSERVICE") != nullptr ||
               getenv("PGHOST") != nullptr || getenv("PGHOSTADDR") != nullptr;
    return std::ranges::any_of(Parts(hosts), IsName);
}

// ---- In the process that waits

/// What the environment and the file of services say of what the settings leave open.
void AddDefaults(Settings* settings) {
    const std::string service = ValueOf(*settings, "service");
    if (!service.empty()) setenv("PGSERVICE", service.c_str(), 1);
    const std::unique_ptr<PQconninfoOption, decltype(&PQconninfoFree)> options(PQconndefaults(),
                                                                               &PQconninfoFree);
    Settings defaults;
    for (const PQconninfoOption* option = options.get(); option != nullptr && option->keyword != nullptr;
         ++option)
        if (option->val != nullptr) defaults.emplace_back(option->keyword, option->val);
    settings->insert(settings->begin(), defaults.begin(), defaults.end());
}

/// Looks names up side by side: one that takes long keeps no other from being found.
class Lookups {
  public:
    explicit Lookups(std::vector<std::string> hosts) : hosts_(std::move(hosts)), requests_(hosts_.size()) {
        hints_.ai_socktype = SOCK_STREAM;
        for (size_t i = 0; i < hosts_.size(); ++i) {
            requests_[i].ar_name = hosts_[i].c_str();
            requests_[i].ar_request = &hints_;
            if (IsName(hosts_[i])) begun_.push_back(&requests_[i]);
        }
        if (!begun_.empty()) getaddrinfo_a(GAI_NOWAIT, begun_.data(), Count(), nullptr);
    }

    void Wait(int64_t ms) {
        const int64_t deadline = NowMs() + ms;
        const auto is_open = [](gaicb* one) { return gai_error(one) == EAI_INPROGRESS; };
        for (int64_t left = ms; left > 0 && std::ranges::any_of(begun_, is_open); left = deadline - NowMs()) {
            const timespec pause{static_cast<time_t>(left / 1000),
                                 static_cast<long>(left % 1000 * 1'000'000)};
            gai_suspend(begun_.data(), Count(), &pause);
        }
    }

    /// The addresses of the host at `index`; none with what is wrong.
    std::vector<std::string> Found(size_t index, std::string* failure) {
        std::vector<std::string> found;
        const int error = gai_error(&requests_[index]);
        if (error != 0)
            failure->append(failure->empty() ? "" : "; ")
                .append(requests_[index].ar_name)
                .append(": ")
                .append(error == EAI_INPROGRESS ? "no name server answers" : gai_strerror(error));
        for (const addrinfo* one = error == 0 ? requests_[index].ar_result : nullptr; one != nullptr;
             one = one->ai_next) {
            char address[NI_MAXHOST];
            if (getnameinfo(one->ai_addr, one->ai_addrlen, address, sizeof address, nullptr, 0,
                            NI_NUMERICHOST) == 0)
                found.emplace_back(address);
        }
        return found;
    }

  private:
    int Count() const { return static_cast<int>(begun_.size()); }

    const std::vector<std::string> hosts_;
    addrinfo hints_{};
    std::vector<gaicb> requests_;
    std::vector<gaicb*> begun_;
};

/// A line for each server: host, address, port, between tabs; or a reason.
std::string FindAll(const Settings& settings, int64_t ms) {
    const std::vector<std::string> addresses = Parts(ValueOf(settings, "hostaddr"));
    const std::vector<std::string> ports = Parts(ValueOf(settings, "port"));
    std::vector<std::string> hosts = Parts(ValueOf(settings, "host"));
    hosts.resize(std::max(hosts.size(), addresses.size()));
    const bool has_addresses = !ValueOf(settings, "hostaddr").empty();
    Lookups lookups(has_addresses ? std::vector<std::string>() : hosts);
    lookups.Wait(ms);
    std::string servers, failure;
    for (size_t i = 0; i < hosts.size(); ++i) {
        std::vector<std::string> of_host(1, i < addresses.size() ? addresses[i] : "");
        if (!has_addresses && IsName(hosts[i])) of_host = lookups.Found(i, &failure);
        for (const std::string& address : of_host)
            servers.append(hosts[i]).append("\t").append(address).append("\t").append(
                ports[std::min(i, ports.size() - 1)] + "\n");
    }
    return !servers.empty() ? servers : kFailure + failure;
}

/// Nothing of the parent's stays open here, and no handler of its runs: all signals are held back for good.
/// Nothing is thrown out of it, either: this process would go on as another of the parent.
[[noreturn]] void Run(const Settings& settings, int64_t ms, int pipe, pid_t parent) noexcept {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() == parent && dup2(pipe, STDOUT_FILENO) == STDOUT_FILENO &&
        close_range(STDERR_FILENO + 1, ~0U, 0) == 0)
        try {
            Settings all = settings;
            AddDefaults(&all);
            const std::string answer = FindAll(all, ms - ms / 8);
            const ssize_t written = write(STDOUT_FILENO, answer.data(), answer.size());
            _exit(written == static_cast<ssize_t>(answer.size()) ? EXIT_SUCCESS : EXIT_FAILURE);
        } catch (const std::bad_alloc&) {
        }
    _exit(EXIT_FAILURE);
}

// ---- In the process that asks

pid_t Start(const Settings& settings, int64_t ms, int pipe) {
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child == 0) Run(settings, ms, pipe, parent);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return child;
}

/// Everything up to the end; false at the deadline.
bool ReadAnswer(int pipe, int64_t deadline, std::string* answer) {
    while (answer->size() < kAnswerMax) {
        pollfd ready{pipe, POLLIN, 0};
        const int64_t left = deadline - NowMs();
        if (left <= 0) return false;
        if (poll(&ready, 1, static_cast<int>(left)) <= 0) continue;  // a signal, or the deadline
        char piece[4096];
        const ssize_t length = read(pipe, piece, sizeof piece);
        if (length == 0) return true;
        if (length > 0) answer->append(piece, static_cast<size_t>(length));
        if (length < 0 && errno != EINTR) return false;
    }
    return false;
}

bool Ask(const Settings& settings, int64_t ms, std::string* answer, std::string* reason) {
    int ends[2];
    *reason = "the server's name cannot be looked up";
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    const pid_t child = Start(settings, ms, ends[1]);
    close(ends[1]);
    const bool is_answered = child > 0 && ReadAnswer(ends[0], NowMs() + ms, answer);
    close(ends[0]);
    if (child <= 0) return false;
    kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!is_answered || answer->empty()) return false;
    reason->clear();
    return true;
}

}  // namespace

std::string ValueOf(const Settings& settings, const char* name) {
    const auto found = std::find_if(settings.rbegin(), settings.rend(),
                                    [name](const auto& setting) { return setting.first == name; });
    return found != settings.rend() ? found->second : "";
}

std::vector<Settings> ServersOf(const Settings& settings, int64_t ms, std::string* reason) {
    std::vector<Settings> servers;
    std::string answer;
    if (!IsOpen(settings))
        answer = FindAll(settings, ms);
    else if (!Ask(settings, ms, &answer, reason))
        return servers;
    if (answer[0] == kFailure) *reason = answer.substr(1);
    // An empty value would leave an earlier one in force: the list of all servers.
    Settings others = settings;
    std::erase_if(others, [](const auto& setting) {
        return std::ranges::find(kOfServer, setting.first) != std::end(kOfServer);
    });
    for (size_t at = 0; at < answer.size() && answer[0] != kFailure;) {
        servers.push_back(others);
        for (const char* name : kOfServer) {
            const size_t end = std::min(answer.find_first_of("\t\n", at), answer.size());
            servers.back().emplace_back(name, answer.substr(at, end - at));
            at = end + 1;
        }
    }
    return servers;
}

}  // namespace koli::host
