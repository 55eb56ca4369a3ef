// koliindexserve: shows the library in a browser ("koliindexctl serve").
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <csignal>
#include <cstdio>
#include <exception>

#include "tools/ctl/context.h"
#include "tools/koliindexserve/places.h"
#include "tools/serve/http/listener.h"
#include "tools/serve/http/secret_file.h"
#include "tools/serve/http/server.h"
#include "tools/serve/options.h"

namespace koli::serve {
namespace {

using ctl::Complain;

constexpr char kAnyPort[] = "127.0.0.1:0";

// TRIAL PAGES
Reply LoginPage(const LoginView& view) {
    Reply reply;
    reply.body =
        "<!doctype html><title>koliindex</title><form method=post action=/login><label>Token <input "
        "name=token type=password></label><input type=hidden name=next value=\"/\"><button>Log in</button></form>";
    if (view.why != LoginView::kAsked) reply.body += "<p>That is not it.</p>";
    return reply;
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

int Serve(const ServeOptions& options) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
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
    Server server;
    const auto page = [](const Request& request, Responder responder) {
        responder.Answer(
            PlainReply(request.path.empty() ? 200 : 404, PhraseOf(request.path.empty() ? 200 : 404)));
    };
    if (!server.Start(std::move(settings), {.login = LoginPage}, page, &error))
        return Complain("%s", error.c_str()), ctl::kExitFiles;
    printf("%s\n", address.c_str());
    if (!token.empty()) printf("token: %s\n", token.c_str());
    fflush(stdout);
    WaitForEnd(signals);
    return ctl::kExitDone;
}

}  // namespace
}  // namespace koli::serve

int main(int argc, char** argv) {
    CLI::App app("Shows the library in a browser.", "koliindexctl serve");
    koli::serve::ServeOptions options;
    koli::serve::AddServeOptions(app, options);
    try {
        app.parse(argc, argv);
        return koli::serve::Serve(options);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // help
        koli::ctl::Complain("%s (see koliindexctl serve --help)", error.what());
        return koli::ctl::kExitUsage;
    } catch (const std::exception& error) {
        koli::ctl::Complain("%s", error.what());
        return koli::ctl::kExitFiles;
    }
}
