// The options of "koliindexctl serve", which hands them on to the program that serves.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <vector>

namespace koli::serve {

struct ServeOptions {
    std::string address;             // "" = loopback and a free port, or the socket that was handed over
    std::string token_file;          // "" = the usual one, where a token is wanted
    std::vector<std::string> names;  // further names of the server
    std::string once;   // the folder that the pages are written to, as files; "" = they are served
    std::string cache;  // the folder of small pictures; "" = the usual one
};

void AddServeOptions(CLI::App& app, ServeOptions& options);

}  // namespace koli::serve
