// Small files with what only the server and its user may know.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace koli::serve {

/// 128 random bits as 32 hexadecimal digits, "" when the kernel gives none.
std::string NewSecret();

/// Whether both are the same, in a time that does not tell where they differ.
bool IsSameSecret(std::string_view one, std::string_view other);

/// The lines of a file that is nobody's but this user's (or root's); none when it is missing.  Nothing, and
/// why in `error`, when it cannot be read, others may read it, or it is no small regular file.
std::optional<std::vector<std::string>> SecretLines(const std::string& path, std::string* error);

/// Writes them, whole, into a file of mode 0600, whose folder is made when it is missing.
bool SaveSecretLines(const std::string& path, const std::vector<std::string>& lines, std::string* error);

/// The token in the file `path`, which is made when it is missing.  "" and why in `error` when there is none.
std::string TokenFrom(const std::string& path, std::string* error);

}  // namespace koli::serve
