#include "tools/ctl/searched.h"

#include <algorithm>
#include <string_view>

#include "base/text/fold.h"

namespace koli::ctl {

std::vector<std::string> SearchedWords(const std::vector<std::string>& texts) {
    constexpr std::string_view kBlanks(" \t\r\n\0", 5);
    std::vector<std::string> words;
    for (const std::string& text : texts) {
        const std::string folded = Folded(text);
        for (size_t begin = 0; (begin = folded.find_first_not_of(kBlanks, begin)) != std::string::npos;) {
            const size_t end = std::min(folded.find_first_of(kBlanks, begin), folded.size());
            words.push_back(folded.substr(begin, end - begin));
            begin = end;
        }
    }
    return words;
}

const std::vector<std::string>& SearchedTags() {
    static const std::vector<std::string> columns = {"path",     "title", "artist", "album",
                                                     "composer", "genre", "comment"};
    return columns;
}

const std::vector<std::string>& SearchedCaption() {
    static const std::vector<std::string> columns = {"path", "title", "description"};
    return columns;
}

}  // namespace koli::ctl
