// The record of what setup has made: one line per step, in the order in which it was done.
//
//   folder PATH
//   link   PATH TARGET
//   file   PATH CHECKSUM     of what was written; 16 hexadecimal digits
//
// with one tab between the fields.  PATH is the machine's, without a test's prefix.
#pragma once

#include <string>
#include <vector>

#include "tools/ctl/setup_plan.h"

namespace koli::ctl {

std::string ManifestLine(const SetupStep& step);

/// A step read back has a file's checksum as its value.  False for a line of another form.
bool ManifestLineParse(const std::string& line, SetupStep* step);

/// 16 digits of the 64-bit FNV-1a hash: tells an edited file, not a forged one.
std::string Checksum(const std::string& text);

}  // namespace koli::ctl
