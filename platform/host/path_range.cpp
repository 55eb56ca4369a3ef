#include "platform/host/path_range.h"

#include <string>

namespace koli::host {

std::string_view WithoutTrailingSlashes(std::string_view path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

void BindPathRange(SqlStatement& statement, std::string_view path) {
    const std::string itself(WithoutTrailingSlashes(path));
    statement.Text(1, itself);
    statement.Text(2, itself + '/');
    statement.Text(3, itself + static_cast<char>('/' + 1));
}

}  // namespace koli::host
