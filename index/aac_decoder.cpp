#include "index/aac_decoder.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "base/path_names.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr const char kModule[] = "aac";
constexpr char kPath[] = KOLI_FAAD_PATH;

}  // namespace

bool AacDecoderGet(char (&word)[kPathSize]) {
    static_assert(sizeof kPath <= kPathSize);
    if (*kPath == '/') return CopyText(word, sizeof word, kPath), true;
    char program[kPathSize];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - sizeof kPath);
    if (length <= 0 || static_cast<size_t>(length) == sizeof program - sizeof kPath) {
        KOLI_LOG_COLON("Cannot tell where this program is: [%s]", strerror(errno));
        return false;
    }
    program[length] = '\0';
    memcpy(program + (FileNameOf(program) - program), kPath, sizeof kPath);
    return KLIBEncShParam(program, word, static_cast<int>(sizeof word)) == 0;
}

}  // namespace koli
