#include "tools/koliindexserve/serve.h"

#include <malloc.h>
#include <sys/resource.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

#include "tools/ctl/context.h"
#include "tools/koliindexserve/kept_site.h"
#include "tools/koliindexserve/media.h"
#include "tools/koliindexserve/places.h"
#include "tools/serve/http/listener.h"
#include "tools/serve/http/secret_file.h"
#include "tools/serve/http/server.h"
#include "tools/serve/options.h"
#include "tools/serve/page/notice_pages.h"
#include "tools/serve/page/site.h"

namespace koli::serve {
namespace {

using ctl::Complain;

// Each thread with an area of memory of its own would hold what its largest page took.
constexpr int kArenas = 2;
// A list of a large library goes back to the kernel as soon as its page is made.
constexpr int kReturnedBytes = 128 << 10;

constexpr char kAnyPort[] = "127.0.0.1:0";

/// A thousand clients, each with a file, and small pictures that wait with theirs.
void RaiseFileLimit() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/// The library and its small pictures; without a maker pages are shown without them.
struct Shown {
    Pictures pictures;
    Library library{ctl::Places{}};

    /// Forks, so it comes before any thread.
    void Start(const std::string& cache) {
        PictureSettings settings;
        settings.folder = cache.empty() ? CacheFolder() : cache;
        std::string error;
        pictures.Start(settings, &error);
        if (!error.empty()) Complain("%s", error.c_str());
        library.Start();
    }

    void Answer(const Request& request, Responder responder) {
        const auto media = MediaAddressOf(request.path);
        if (!media)
            responder.Answer(SitePage({library, request}));
        else if (media->kind == MediaAddress::kFile)
            responder.Answer(FileReply(library, media->path));
        else
            AnswerPicture(library, pictures, *media, std::move(responder));
    }
};

/// The signals that end the program, from now on only seen by whoever asks for them.  Those that whoever
/// started it has it ignore stay so.
sigset_t TakeSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&signals, signal);
    }
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

bool IsPending(const sigset_t& signals) {
    sigset_t pending;
    sigpending(&pending);
    sigandset(&pending, &pending, &signals);
    return sigisemptyset(&pending) == 0;
}

/// Waits until the program is to end.
void WaitForEnd(const sigset_t& signals) {
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
}

/// The file of the token that everybody is asked for, "" for none.
std::string TokenFile(const ServeOptions& options, bool is_wanted) {
    if (!options.token_file.empty() || !is_wanted) return options.token_file;
    const std::string folder = StateFolder();
    return folder.empty() ? "" : folder + "/serve.token";
}

/// Has everybody asked for the token in the file.  False when there is none.
bool Secure(const std::string& file, ServerSettings* settings) {
    std::string error = "there is no folder for the token (see --token-file)";
    if (!file.empty()) settings->token = TokenFrom(file, &error);
    if (settings->token.empty()) return Complain("%s", error.c_str()), false;
    settings->sessions_file = file + ".sessions";
    return true;
}

/// Writes the pages as files.
int WritePages(const ServeOptions& options, const sigset_t& signals, std::string* error) {
    constexpr int kPatience = 600;  // seconds that a large library may take to be read
    Shown shown;
    shown.Start(options.cache);
    *error = "the library takes too long to be read";
    for (int i = 0; !shown.library.WaitUntilRead(1); ++i)
        if (i == kPatience || IsPending(signals)) return ctl::kExitDatabase;
    shown.library.Stop();  // what is read later would not fit the pages that are written
    if (*error = shown.library.Error(); !error->empty()) return ctl::kExitDatabase;
    const auto is_wanted = [&signals] { return !IsPending(signals); };
    return KeepSite(shown.library, shown.pictures, options.once, is_wanted, error) ? ctl::kExitDone
                                                                                   : ctl::kExitFiles;
}

/// A signal ends the program only when nothing is left half done.
int KeepPages(const ServeOptions& options) {
    const sigset_t signals = TakeSignals();
    std::string error;
    const int code = WritePages(options, signals, &error);
    pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
    if (code != ctl::kExitDone) Complain("%s", error.c_str());
    return code;
}

int Serve(const ServeOptions& options) {
    RaiseFileLimit();
    mallopt(M_ARENA_MAX, kArenas);
    mallopt(M_MMAP_THRESHOLD, kReturnedBytes);
    mallopt(M_TRIM_THRESHOLD, kReturnedBytes);
    const sigset_t signals = TakeSignals();
    signal(SIGPIPE, SIG_IGN);
    std::string error;
    ServerSettings settings{.listener = TakeListener(&error), .names = options.names};
    const bool is_service = settings.listener.valid();
    if (!is_service && error.empty())
        settings.listener = ListenOn(options.address.empty() ? kAnyPort : options.address, &error);
    if (!settings.listener.valid()) return Complain("%s", error.c_str()), ctl::kExitUsage;
    const int listener = settings.listener.get();
    const std::string address = BrowserAddress(listener);
    const bool is_token_wanted = is_service || !IsLoopback(listener) || !options.token_file.empty();
    const std::string token = TokenFile(options, is_token_wanted);
    if (is_token_wanted && !Secure(token, &settings)) return ctl::kExitFiles;
    Shown shown;
    shown.Start(options.cache);
    const auto answer = [&shown](const Request& request, Responder responder) {
        shown.Answer(request, std::move(responder));
    };
    Server server;
    if (!server.Start(std::move(settings), {.error = ErrorPage, .login = LoginPage}, answer, &error))
        return Complain("%s", error.c_str()), ctl::kExitFiles;
    printf("%s\n", address.c_str());
    if (!token.empty()) printf("token: %s\n", token.c_str());
    fflush(stdout);
    WaitForEnd(signals);
    return ctl::kExitDone;
}

}  // namespace

int ServeRun(int argc, char** argv) {
    CLI::App app("Shows the library in a browser.", "koliindexctl serve");
    ServeOptions options;
    AddServeOptions(app, options);
    try {
        app.parse(argc, argv);
        return options.once.empty() ? Serve(options) : KeepPages(options);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help
        ctl::Complain("%s (see koliindexctl serve --help)", error.what());
        return ctl::kExitUsage;
    } catch (const std::exception& error) {
        ctl::Complain("%s", error.what());
        return ctl::kExitFiles;
    }
}

}  // namespace koli::serve
