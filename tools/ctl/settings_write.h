// Changing a settings file of lines KEY=VALUE, which people write, too.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace koli::ctl {

using Settings = std::vector<std::pair<std::string, std::string>>;

/// The text with each of the settings in force: in the place of the lines that set its key, else at the end.
/// Whatever else stands there stays.
std::string WithSettings(const std::string& text, const Settings& settings);

/// Writes that to the file, as a whole or not at all; mode and owner stay.  A link stays a link.  False with
/// the reason in `*error`.
bool SettingsWrite(const std::string& file, const Settings& settings, std::string* error);

}  // namespace koli::ctl
