// What is stored for one file, field by field.
#pragma once

#include <vector>

#include "tools/ctl/output.h"
#include "tools/serve/page/markup.h"

namespace koli::serve {

/// Fields that say something, with their units: a number that people read otherwise stands behind that as it
/// is.
void AddSections(const std::vector<ctl::Section>& sections, Markup& to);

}  // namespace koli::serve
