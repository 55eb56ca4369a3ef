#include "tools/ctl/small_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <sstream>

#include "base/unique_fd.h"

namespace koli::ctl {

bool SmallFileRead(const std::string& path, std::string* text, size_t most) {
    const UniqueFd file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!file.valid()) return false;
    text->resize(most + 1);
    size_t length = 0;
    while (length < text->size()) {
        const ssize_t got = read(file.get(), text->data() + length, text->size() - length);
        if (got < 0) return false;
        if (got == 0) break;
        length += static_cast<size_t>(got);
    }
    text->resize(length);
    errno = EFBIG;
    return length <= most;
}

std::vector<std::pair<std::string, std::string>> KeyValueLines(const std::string& text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        if (const size_t equals = line.find('='); equals != std::string::npos)
            pairs.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    return pairs;
}

}  // namespace koli::ctl
