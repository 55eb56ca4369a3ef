#include "tools/serve/library/playlist_file.h"

#include <algorithm>
#include <array>
#include <utility>

namespace koli::serve {
namespace {

constexpr std::string_view kMark = "\xEF\xBB\xBF";  // of UTF-8
constexpr std::string_view kBlanks = " \t\r\n";

std::string_view Trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

/// "#EXTINF:123,Artist - Title" tells the title of the line behind it.
std::vector<PlaylistLine> M3uLines(std::string_view bytes, size_t max) {
    constexpr std::string_view kTitleTag = "#EXTINF:";
    std::vector<PlaylistLine> lines;
    std::string title;
    while (!bytes.empty() && lines.size() < max) {
        const size_t end = std::min(bytes.find('\n'), bytes.size());
        const std::string_view line = Trimmed(bytes.substr(0, end));
        bytes.remove_prefix(std::min(end + 1, bytes.size()));
        if (line.starts_with(kTitleTag)) {
            const size_t comma = line.find(',');
            if (comma != std::string_view::npos) title = Trimmed(line.substr(comma + 1));
        } else if (!line.empty() && line.front() != '#') {
            lines.push_back({std::string(line), std::exchange(title, "")});
        }
    }
    return lines;
}

/// XML's five names for characters; what else begins with '&' stays.
std::string WithoutReferences(std::string_view text) {
    constexpr std::array<std::pair<std::string_view, char>, 5> kReferences{
        {{"&amp;", '&'}, {"&apos;", '\''}, {"&quot;", '"'}, {"&lt;", '<'}, {"&gt;", '>'}}};
    std::string plain;
    while (!text.empty()) {
        const auto* const found =
            std::find_if(kReferences.begin(), kReferences.end(),
                         [text](const auto& one) { return text.starts_with(one.first); });
        const bool is_reference = found != kReferences.end();
        plain += is_reference ? found->second : text.front();
        text.remove_prefix(is_reference ? found->first.size() : 1);
    }
    return plain;
}

/// <media src="..\Music\Song.mp3"/> elements.
std::vector<PlaylistLine> WplLines(std::string_view bytes, size_t max) {
    constexpr std::string_view kElement = "<media ", kSource = "src=";
    std::vector<PlaylistLine> lines;
    for (size_t at = 0; lines.size() < max && (at = bytes.find(kElement, at)) != std::string_view::npos;) {
        at += kElement.size();
        // Another one begins where this one is not ended: no byte is looked at for each of many.
        const std::string_view element = bytes.substr(at, bytes.find_first_of("<>", at) - at);
        at += element.size();
        const size_t source = element.find(kSource);
        if (source == std::string_view::npos || source + kSource.size() >= element.size()) continue;
        const std::string_view quoted = element.substr(source + kSource.size());
        const char quote = quoted.front();
        const size_t end = quoted.find(quote, 1);
        if ((quote == '"' || quote == '\'') && end != std::string_view::npos)
            lines.push_back({WithoutReferences(quoted.substr(1, end - 1)), ""});
    }
    return lines;
}

}  // namespace

std::vector<PlaylistLine> PlaylistLines(std::string_view bytes, size_t max) {
    if (bytes.starts_with(kMark)) bytes.remove_prefix(kMark.size());
    const std::string_view first = Trimmed(bytes.substr(0, 256));
    return first.starts_with("<?") || first.starts_with("<smil") ? WplLines(bytes, max)
                                                                 : M3uLines(bytes, max);
}

std::string PlaylistTarget(std::string_view playlist, std::string_view entry) {
    if (entry.find("://") != std::string_view::npos) return "";
    std::string text(entry);
    // Players elsewhere part folders by backslashes.
    if (text.find('/') == std::string::npos) std::replace(text.begin(), text.end(), '\\', '/');
    if (!text.starts_with('/')) text = std::string(playlist.substr(0, playlist.rfind('/') + 1)).append(text);
    std::string target;
    for (size_t begin = 1; begin <= text.size();) {
        const size_t end = std::min(text.find('/', begin), text.size());
        const std::string name = text.substr(begin, end - begin);
        begin = end + 1;
        if (name == "..") {
            if (target.empty()) return "";
            target.resize(target.rfind('/'));
        } else if (!name.empty() && name != ".") {
            target.append("/").append(name);
        }
    }
    return target;
}

}  // namespace koli::serve
