#include <unistd.h>

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <cerrno>
#include <climits>
#include <cstring>

#include "base/path_names.h"
#include "tools/koliindexctl/commands.h"

namespace koli::ctl {
namespace {

// From the folder of this program, where it is installed and where it is built.
constexpr char kProgram[] = "../" KOLI_PRIVATE_DIR "/koliindexserve";

/// Goes on as the program that serves, which reads its options itself.  Returns only when it cannot.
ExitCode BecomeServer(const std::vector<std::string>& words) {
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) {
        Complain("cannot tell where this program is: %s", strerror(errno));
        return kExitFiles;
    }
    self[length] = '\0';
    std::string program(self, static_cast<size_t>(FileNameOf(self) - self));
    program += kProgram;
    std::vector<char*> arguments{program.data()};
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    execv(program.c_str(), arguments.data());
    Complain("%s: %s", program.c_str(), strerror(errno));
    return kExitFiles;
}

}  // namespace

void AddServe(CLI::App& app, Arguments& a) {
    CLI::App* serve = app.add_subcommand("serve", "Show the library in a browser until SIGTERM");
    serve::AddServeOptions(*serve, a.serve);
    serve->footer("Example:\n  koliindexctl serve 127.0.0.1:8080\n");
    SetWork(serve, a, [&a] { return BecomeServer(a.words); });
}

}  // namespace koli::ctl
