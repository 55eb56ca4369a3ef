#include "tools/serve/options.h"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

namespace koli::serve {

void AddServeOptions(CLI::App& app, ServeOptions& options) {
    app.add_option(
        "ADDRESS:PORT", options.address,
        "Where browsers find it: 127.0.0.1:8080, [::1]:8080, 0.0.0.0:8080 (else this machine alone, and a free port)");
    app.add_option("--token-file", options.token_file,
                   "Ask everybody for the token in this file, which is made when it is missing");
    app.add_option("--name", options.names, "A further name by which browsers call this machine")
        ->allow_extra_args(false);
    app.add_option("--once", options.once,
                   "Serve nothing: write the same pages as files into this empty folder");
    app.add_option("--cache", options.cache,
                   "Keep the small pictures in this folder (else in the user's cache)");
}

}  // namespace koli::serve
