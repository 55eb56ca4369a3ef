// Where the databases of a test are: in files, or on the server that KOLI_TEST_DATABASE names.
#pragma once

#include <unistd.h>

#include <cstdlib>
#include <string>

#include "tests/fake_platform.h"

namespace koli::test {

/// Makes the test's library on the server one of its own.
inline void MakeLibrary() {
    static int made = 0;
    Setting("library") = "test " + std::to_string(getpid()) + "." + std::to_string(++made);
}

/// The server, or else the directory.
inline std::string PlaceOr(const std::string& directory) {
    const char* const server = getenv("KOLI_TEST_DATABASE");
    return server != nullptr ? server : directory;
}

}  // namespace koli::test
