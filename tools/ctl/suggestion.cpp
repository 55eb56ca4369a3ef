#include "tools/ctl/suggestion.h"

#include <algorithm>
#include <cctype>

namespace koli::ctl {
namespace {

constexpr size_t kWordMax = 64;  // bytes; nobody mistypes a word that long

bool AreSame(char a, char b) {
    return tolower(static_cast<unsigned char>(a)) == tolower(static_cast<unsigned char>(b));
}

/// How many letters have to be changed, added, taken away or swapped with their neighbour.
size_t Distance(const std::string& a, const std::string& b) {
    std::vector<size_t> before(b.size() + 1), above(b.size() + 1), row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        before.swap(above);
        above.swap(row);
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t change = above[j - 1] + (AreSame(a[i - 1], b[j - 1]) ? 0 : 1);
            row[j] = std::min({change, above[j] + 1, row[j - 1] + 1});
            if (i > 1 && j > 1 && AreSame(a[i - 1], b[j - 2]) && AreSame(a[i - 2], b[j - 1]))
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[b.size()];
}

}  // namespace

std::string Suggestion(const std::string& word, const std::vector<std::string>& known) {
    if (word.empty() || word.size() > kWordMax) return "";
    size_t least = std::min<size_t>(3, word.size() / 3 + 1) + 1;
    const std::string* nearest = nullptr;
    const std::string* longer = nullptr;
    size_t longer_count = 0;
    for (const std::string& candidate : known) {
        if (candidate.starts_with(word)) longer = &candidate, ++longer_count;
        const size_t distance = Distance(word, candidate);
        if (distance >= std::min(least, candidate.size()))
            continue;  // all letters of a short word may differ
        least = distance;
        nearest = &candidate;
    }
    if (longer_count == 1) return *longer;
    return nearest != nullptr ? *nearest : "";
}

std::string DidYouMean(const std::string& word, const std::vector<std::string>& known) {
    const std::string meant = Suggestion(word, known);
    return meant.empty() ? "" : "; did you mean " + meant + "?";
}

}  // namespace koli::ctl
