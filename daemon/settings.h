// The settings that a batch depends on.
#pragma once

#include <string>

namespace koli {

/// Reads the feature switches of the appliance's defaults file.  When that fails for a reason that passes
/// they stay as they are, and SettingsFault reads them again.
void FeaturesRead();

/// Reads the machine's charset of old tags and puts it in force (KOLITagCharsetSet), with the same rule.
void CharsetRead();

/// Whether the settings are known: "", or why they cannot be read now ("FILE: REASON").  A file that is not
/// there, or not permitted, sets nothing and is no fault.
std::string SettingsFault();

}  // namespace koli
