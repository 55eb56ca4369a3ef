// What somebody probably meant who mistyped a word.
#pragma once

#include <string>
#include <vector>

namespace koli::ctl {

/// The one of `known` that is nearest to `word`, which is none of them: few letters differ, are missing, too
/// many or swapped, or it is the only one that begins so. "" when none is near.
std::string Suggestion(const std::string& word, const std::vector<std::string>& known);

/// The same for the end of a complaint: "; did you mean X?", or "".
std::string DidYouMean(const std::string& word, const std::vector<std::string>& known);

}  // namespace koli::ctl
