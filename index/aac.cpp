#include "index/aac.h"

#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>

#include "base/parse_number.h"
#include "index/aac_decoder.h"
#include "index/record/util.h"
#include "platform/kolidb.h"
#include "platform/kolisdk.h"
#include "video/guarded_child.h"
#include "video/program_guard.h"

namespace koli {
namespace {

constexpr const char kModule[] = "aac";
constexpr size_t kCommandSize = 4096;
constexpr size_t kLineSize = 1024;

struct DecoderFigures {
    float seconds;
    int32_t sample_rate;
    int32_t channels;
    int32_t bitrate;
};

const char* SkipBlanks(const char* text) {
    while (isspace(static_cast<unsigned char>(*text)) != 0)
        ++text;
    return text;
}

/// Advances `*text` over `word`; false when something else stands there.
bool Take(const char** text, const char* word) {
    const size_t length = strlen(word);
    if (strncmp(*text, word, length) != 0) return false;
    *text += length;
    return true;
}

/// Advances `*text` over a number, with '.' as its decimal point whatever the locale.
bool TakeFloat(const char** text, float* value) {
    static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
    char* end = nullptr;
    *value = strtof_l(*text, &end, c_locale);
    const bool found = end != *text;
    *text = end;
    return found;
}

bool TakeInt(const char** text, int32_t* value) {
    const char* start = *text;
    *value = ParseInt32(start, text);
    return *text != start;
}

/// What sscanf makes of "%s duration;%f;samplerate;%d;channel;%d;bitrate;%d;" when all five are converted,
/// with numbers that saturate.
bool ParseFigures(const char* line, DecoderFigures* figures) {
    const char* text = SkipBlanks(line);
    const size_t word = strcspn(text, " \t\n\v\f\r");
    if (word == 0) return false;
    text = SkipBlanks(text + word);
    return Take(&text, "duration;") && TakeFloat(&text, &figures->seconds) && Take(&text, ";samplerate;") &&
           TakeInt(&text, &figures->sample_rate) && Take(&text, ";channel;") &&
           TakeInt(&text, &figures->channels) && Take(&text, ";bitrate;") &&
           TakeInt(&text, &figures->bitrate);
}

/// Reads the first line, its newline included, of at most kLineSize - 1 bytes; false when there is none.  Not
/// through stdio: a signal in mid-line would lose what had been read.
bool ReadLine(int descriptor, char (&line)[kLineSize]) {
    size_t used = 0;
    while (used < sizeof line - 1) {
        const ssize_t got = read(descriptor, line + used, sizeof line - 1 - used);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        const void* newline = memchr(line + used, '\n', static_cast<size_t>(got));
        used += static_cast<size_t>(got);
        if (newline != nullptr) {
            used = static_cast<size_t>(static_cast<const char*>(newline) - line) + 1;
            break;
        }
    }
    line[used] = '\0';
    return used > 0;
}

struct FreeText {
    void operator()(char* text) const { free(text); }
};
struct ClosePipe {
    void operator()(FILE* pipe) const { pclose(pipe); }
};

/// Writes the command for a path that is quoted for the shell.  One that does not fit is not run: cut inside
/// the quotes it would mean something else.
bool WriteCommand(const char* quoted_path, char (&command)[kCommandSize]) {
    char decoder[kPathSize];
    if (!AacDecoderGet(decoder)) return false;
    const int length = snprintf(command, sizeof command, "%s -i %s 2> /dev/null", decoder, quoted_path);
    if (length >= 0 && static_cast<size_t>(length) < sizeof command) return true;
    KOLI_LOG_COLON("The command is too long. [%s]", command);
    return false;
}

/// In the child of `parent`: runs the command to its end.  Returns 0 with its first line, else 1.
int RunDecoder(const char* command, char (&line)[kLineSize], pid_t parent) {
    if (!ProgramGuardEnter(parent)) return 1;
    const std::unique_ptr<FILE, ClosePipe> pipe(popen(command, "re"));
    if (pipe == nullptr) {
        KOLI_LOG_COLON("Failed to popen. [%s]", command);
        return 1;
    }
    return ReadLine(fileno(pipe.get()), line) ? 0 : 1;
}

/// Gets the decoder's first line.  It runs in a child that is watched as a probe is, in its time and memory.
bool DecoderLineGet(const char* command, char (&line)[kLineSize], FileReading& reading) {
    const Shared<char[kLineSize]> shared;
    if (!shared.valid() || !ProgramGuardPrepare()) {
        reading.Trouble("the AAC decoder cannot be started", errno);
        return false;
    }
    WatchSettings settings;
    settings.kill_child = ProgramChildKill;
    const auto body = [&](pid_t parent, FileReading&) { return RunDecoder(command, *shared.get(), parent); };
    if (GuardedChildRun(std::cref(body), reading, settings) != 0) return false;
    memcpy(line, *shared.get(), sizeof line - 1);
    line[sizeof line - 1] = '\0';
    return true;
}

}  // namespace

int AacInfoGet(const char* path, MediaInfo* record, FileReading& reading) {
    if (path == nullptr || *path == '\0' || record == nullptr) {
        KOLI_LOG_COLON("Bad parameter.");
        return -1;
    }
    const size_t length = strlen(path);
    const size_t quoted_size = 2 * length + 1;
    const std::unique_ptr<char, FreeText> quoted(
        quoted_size <= INT_MAX ? static_cast<char*>(malloc(quoted_size)) : nullptr);
    if (quoted == nullptr) {
        KOLI_LOG_COLON("Failed to malloc(%d)", static_cast<int>(length));
        return -1;
    }
    if (KLIBEncShParam(path, quoted.get(), static_cast<int>(quoted_size)) != 0) {
        KOLI_LOG_COLON("Failed to encode string [%s]", path);
        return -1;
    }
    char command[kCommandSize];
    char line[kLineSize];
    if (!WriteCommand(quoted.get(), command) || !DecoderLineGet(command, line, reading)) {
        reading.CannotParse("the AAC decoder tells nothing of it");
        return -1;
    }

    DecoderFigures figures{};
    if (!ParseFigures(line, &figures)) {
        KOLI_LOG_COLON("Failed to parse FAAD result. [%s]", line);
        reading.CannotParse("the AAC decoder's answer makes no sense");
        return -1;
    }
    record->duration = figures.seconds;
    record->sample_rate = static_cast<uint32_t>(figures.sample_rate);
    record->channels = static_cast<uint32_t>(figures.channels);
    record->audio_bitrate = static_cast<uint32_t>(figures.bitrate);
    MediaInfoValid(record);
    return 0;
}

int AacFileAdd(const KnownPath& path, FileReading& reading) {
    if (path.text() == nullptr) {
        KOLI_LOG_COLON("Bad parameter.");
        return -1;
    }
    MediaInfo record{};
    if (MediaInfoFill(path, &record) != 0) return -1;
    const int result = AacInfoGet(path.text(), &record, reading) != 0 ? 1 : -1;
    return SaveMediaInfo(kStoreMusic, record, result, LogSite(kModule, LogForm::kColon),
                         "Failed to save media info to database. [%s]");
}

}  // namespace koli
