#include "tools/serve/http/secret_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <system_error>

#include "base/unique_fd.h"

namespace koli::serve {
namespace {

constexpr int kSizeMax = 16384;   // of a file of secrets
constexpr size_t kTokenMin = 16;  // characters of one that somebody has thought of

std::string Why(const std::string& path, const char* what) {
    return path + ": " + what;
}

/// Why the open file is not to be trusted, null when it is.
const char* Distrust(const struct stat& status) {
    if (!S_ISREG(status.st_mode)) return "it is not a regular file";
    if (status.st_uid != geteuid() && status.st_uid != 0) return "it belongs to somebody else";
    if ((status.st_mode & 077) != 0) return "others may read or write it (chmod 600)";
    if (status.st_size > off_t{kSizeMax}) return "it is too long";
    return nullptr;
}

bool WriteAll(int fd, const std::string& text) {
    for (size_t done = 0; done < text.size();) {
        const ssize_t written = write(fd, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) done += static_cast<size_t>(written);
    }
    return true;
}

}  // namespace

std::string NewSecret() {
    unsigned char bytes[16];
    if (getrandom(bytes, sizeof bytes, 0) != static_cast<ssize_t>(sizeof bytes)) return "";
    std::string text;
    for (const unsigned char byte : bytes) {
        text += "0123456789abcdef"[byte >> 4];
        text += "0123456789abcdef"[byte & 15];
    }
    return text;
}

bool IsSameSecret(std::string_view one, std::string_view other) {
    volatile unsigned char difference = one.size() == other.size() ? 0 : 1;
    for (size_t i = 0; i < one.size(); ++i) {
        const char against = i < other.size() ? other[i] : '\0';
        difference = static_cast<unsigned char>(difference | (one[i] ^ against));
    }
    return difference == 0;
}

std::optional<std::vector<std::string>> SecretLines(const std::string& path, std::string* error) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status;
    if (!file.valid() && errno == ENOENT) return std::vector<std::string>();
    if (!file.valid() || fstat(file.get(), &status) != 0) {
        *error = Why(path, strerror(errno));
        return std::nullopt;
    }
    if (const char* const distrust = Distrust(status)) {
        *error = Why(path, distrust);
        return std::nullopt;
    }
    std::string text(kSizeMax, '\0');
    const ssize_t length = read(file.get(), text.data(), text.size());
    if (length < 0) {
        *error = Why(path, strerror(errno));
        return std::nullopt;
    }
    text.resize(static_cast<size_t>(length));
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(line);
    return lines;
}

bool SaveSecretLines(const std::string& path, const std::vector<std::string>& lines, std::string* error) {
    std::string text;
    for (const std::string& line : lines)
        text += line + "\n";
    std::error_code ignored;
    const std::string folder = std::filesystem::path(path).parent_path();
    if (!folder.empty() && std::filesystem::create_directories(folder, ignored)) chmod(folder.c_str(), 0700);
    const std::string fresh = path + ".new";
    unlink(fresh.c_str());
    const UniqueFd file(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (file.valid() && WriteAll(file.get(), text) && fsync(file.get()) == 0 &&
        rename(fresh.c_str(), path.c_str()) == 0)
        return true;
    *error = Why(path, strerror(errno));
    if (file.valid()) unlink(fresh.c_str());
    return false;
}

std::string TokenFrom(const std::string& path, std::string* error) {
    const auto lines = SecretLines(path, error);
    if (!lines) return "";
    if (lines->empty()) {
        const std::string token = NewSecret();
        if (token.empty()) *error = "the kernel gives no random number";
        return !token.empty() && SaveSecretLines(path, {token}, error) ? token : "";
    }
    if (lines->front().size() >= kTokenMin) return lines->front();
    *error = Why(path, "its first line is too short for a token (remove the file to get a new one)");
    return "";
}

}  // namespace koli::serve
