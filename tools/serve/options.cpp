#include "tools/serve/options.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace koli::serve {
namespace {

/// An empty word, as a shell makes of a variable that is not set, would have it served as if nothing were
/// asked for.
std::string EmptyWord(const std::string& text) {
    return text.empty() ? "an empty word" : "";
}

}  // namespace

void AddServeOptions(CLI::App& app, ServeOptions& options) {
    CLI::Option* const address = app.add_option(
        "ADDRESS:PORT", options.address,
        "Where browsers find it: 127.0.0.1:8080, [::1]:8080, 0.0.0.0:8080 (else this machine alone, and a free port)");
    app.add_option("--token-file", options.token_file,
                   "Ask everybody for the token in this file, which is made when it is missing")
        ->check(EmptyWord);
    app.add_option("--name", options.names, "A further name by which browsers call this machine")
        ->allow_extra_args(false)
        ->check(EmptyWord);
    app.add_option("--once", options.once,
                   "Serve nothing: write the same pages as files into this empty folder")
        ->check(EmptyWord)
        ->excludes(address);
    app.add_option("--cache", options.cache,
                   "Keep the small pictures in this folder (else in the user's cache)")
        ->check(EmptyWord);
}

}  // namespace koli::serve
