#include "platform/host/path_range.h"

namespace koli::host {

std::string_view WithoutTrailingSlashes(std::string_view path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

std::string FirstKeyBelow(std::string_view folder) {
    return std::string(folder).append(folder == "/" ? "" : "/");
}

std::string KeyBehind(std::string_view folder) {
    std::string key = FirstKeyBelow(folder);
    ++key.back();
    return key;
}

SqlStatement& FillPathRange(SqlStatement& statement, std::string_view path) {
    const std::string_view itself = WithoutTrailingSlashes(path);
    return statement.Fill(itself, FirstKeyBelow(itself), KeyBehind(itself));
}

}  // namespace koli::host
