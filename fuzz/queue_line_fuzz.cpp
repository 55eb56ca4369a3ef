// Arbitrary bytes as an indexing queue.  What reaches the engine must be a path that the bytes really hold:
// no line end in it, nothing that names nothing, and nothing that was cut off a longer text.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "base/features.h"
#include "base/later_renames.h"
#include "base/path_names.h"
#include "daemon/batch.h"
#include "fuzz/memory_file.h"
#include "index/directory.h"
#include "index/index.h"
#include "tests/fake_platform.h"

namespace koli {

static std::string queue;         // the bytes of this run
static bool has_asked_for_moves;  // what waits; once a run, for it looks at the files

static void Require(bool condition) {
    if (!condition) abort();
}

static void CheckPath(const char* path) {
    if (path == nullptr) return;
    const size_t length = strlen(path);
    Require(length < 4110 && strchr(path, '\n') == nullptr);
    Require(length < 2 || path[length - 1] != '/');
    Require(strstr(path, "//") == nullptr && strstr(path, "/./") == nullptr);
    Require(queue.find(FileNameOf(path)) != std::string::npos);
}

int IndexWalk(const KnownPath& path, int mode, int types) {
    CheckPath(path.text());
    Require(mode != 3 || (path.text() == nullptr && (types == 1 || types == 4 || types == 8)));
    return 0;
}

void IndexFilesBelow(const char*) {}

void IndexTreeAgain(const char* directory) {
    CheckPath(directory);
}

int IndexOnePath(const KnownPath& path, int mode) {
    CheckPath(path.text());
    Require(mode == 1 || mode == 2);
    if (path.text() != nullptr && !std::exchange(has_asked_for_moves, true))
        Require(!IsBroughtLater(path.text()) || queue.find("N:") != std::string::npos);
    return static_cast<int>(queue.size() % 2);
}

}  // namespace koli

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    koli::test::fake.calls.clear();
    koli::test::fake.log.clear();
    koli::support_photo = koli::support_vidora = 1;
    koli::has_asked_for_moves = false;
    koli::queue.assign(reinterpret_cast<const char*>(data), size);
    FILE* batch = fopen(koli::test::MemoryFile(data, size).c_str(), "r");
    koli::ProcessBatchLines(batch, "/nowhere", false, false);
    koli::Require(ftell(batch) == static_cast<long>(size));
    fclose(batch);
    return 0;
}
