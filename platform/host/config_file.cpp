// Look-ups in the appliance's text files: key=value settings, and lines of a queue.
#include <cerrno>
#include <string_view>

#include "platform/host/line_reader.h"
#include "platform/kolisdk.h"

namespace koli {
namespace {

constexpr int64_t kConfigBytesMax = 1 << 20;  // a larger settings file is taken for a damaged one

std::string_view WithoutBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

/// Takes `key=value` or `key="value"` apart.  False for a comment or any other line.
bool SplitSetting(std::string_view line, std::string_view* key, std::string_view* value) {
    line = WithoutBlanks(line);
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos || line.front() == '#') return false;
    *key = WithoutBlanks(line.substr(0, equals));
    *value = WithoutBlanks(line.substr(equals + 1));
    if (value->size() >= 2 && value->front() == '"' && value->back() == '"')
        *value = value->substr(1, value->size() - 2);
    return true;
}

/// Hands each value of `key` to `take`, in file order: the last one is the one in force.  False when the file
/// cannot be read (errno tells why) or does not hold the key (errno is 0).
template <typename Take>
bool VisitValues(const char* file, const char* key, Take take) {
    errno = EINVAL;  // for what no call has refused
    if (key == nullptr) return false;
    LineReader lines(file);
    if (!lines.ok() || lines.file_size() > kConfigBytesMax) return false;
    bool found = false;
    std::string_view name, value;
    for (LineReader::Line line; lines.Next(&line);) {
        if (!line.whole || !SplitSetting(line.text, &name, &value) || name != key) continue;
        take(value);
        found = true;
    }
    if (!lines.ok()) return false;
    errno = 0;
    return found;
}

/// Copies `text`, cut at size - 1 bytes and terminated.
void CopyCut(std::string_view text, char* buffer, int size) {
    buffer[text.copy(buffer, static_cast<size_t>(size) - 1)] = '\0';
}

}  // namespace
}  // namespace koli

using koli::LineReader;

extern "C" {

int KLIBFileGetKeyValue(const char* file, const char* key, char* buffer, int size, int /*flags*/) {
    if (buffer == nullptr || size <= 0) return -1;
    buffer[0] = '\0';
    size_t length = 0;
    const auto copy = [&](std::string_view value) {
        koli::CopyCut(value, buffer, size);
        length = value.size();
    };
    if (koli::VisitValues(file, key, copy)) return static_cast<int>(length);
    buffer[0] = '\0';
    return -1;
}

int BlKOLIFileCheckKeyValue(const char* file, const char* key, const char* value, int /*flags*/) {
    if (value == nullptr) return 0;
    bool equal = false;
    const auto compare = [&](std::string_view found) { equal = found == value; };
    return koli::VisitValues(file, key, compare) && equal ? 1 : 0;
}

int KLIBFileGetLine(const char* file, const char* key, char* buffer, int size, int /*flags*/) {
    if (key == nullptr || buffer == nullptr || size <= 0) return -1;
    buffer[0] = '\0';
    LineReader lines(file);
    const std::string_view wanted(key);
    int found = 0;
    for (LineReader::Line line; lines.Next(&line);) {
        if (!line.text.starts_with(wanted)) continue;
        const bool equal = line.whole && line.text.size() == wanted.size();
        // A line with a zero byte is no text: read back as one it could pass for the key itself.
        if ((found != 0 && !equal) || line.text.find('\0') != std::string_view::npos) continue;
        koli::CopyCut(line.text, buffer, size);
        found = 1;
        if (equal) return found;
    }
    if (lines.ok()) return found;
    buffer[0] = '\0';
    return -1;
}

}  // extern "C"
