// Numbers put into the order of texts, as people order texts.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace koli::serve {

/// The numbers in the order of what `text` gives for each (base/text/fold.h's order), equal ones in the order
/// of the numbers.
std::vector<uint32_t> OrderedByText(std::vector<uint32_t> numbers,
                                    const std::function<std::string(uint32_t)>& text);

}  // namespace koli::serve
