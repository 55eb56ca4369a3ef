#include "tools/serve/page/fields.h"

#include <algorithm>
#include <span>
#include <utility>

#include "tools/serve/page/values.h"

namespace koli::serve {
namespace {

using ctl::Field;

struct Named {
    std::string_view name;
    const char* shown;
};

constexpr Named kSections[] = {{"music", "In the music library"},
                               {"video", "In the film library"},
                               {"photo", "In the media library's pictures"},
                               {"playlist", "In the playlists"},
                               {"directory", "As a folder"},
                               {"problem", "Why it could not be read"},
                               {"photo_info", "In the photo library"},
                               {"video_desc", "Its description"},
                               {"video_comment", "Comments"},
                               {"photo_share", "As a photo album"},
                               {"photo_access_right", "Who may see it"},
                               {"at_and_below", "At and below it"},
                               {"covers", "Covers"}};

constexpr Named kFields[] = {{"ctime", "State changed"}, {"mtime", "Changed"}, {"f_number", "Aperture"},
                             {"iso_speed", "ISO speed"}, {"userid", "User"},   {"has_cover", "Has a cover"}};

const char* ShownFor(std::span<const Named> names, std::string_view name) {
    const auto known =
        std::find_if(names.begin(), names.end(), [name](const Named& one) { return one.name == name; });
    return known != names.end() ? known->shown : nullptr;
}

/// "Sample rate" for "sample_rate".
std::string Words(const std::string& name) {
    if (const char* const shown = ShownFor(kFields, name); shown != nullptr) return shown;
    std::string words = name;
    std::replace(words.begin(), words.end(), '_', ' ');
    return Begun(words);
}

/// What people read for a number, "" for the number itself.
std::string HumanText(const std::string& name, const Field& field) {
    if (field.kind == Field::kReal && name == "duration") return PlayingTime(field.real);
    if (field.kind != Field::kNumber) return "";
    if (name == "file_size") return ctl::SizeText(field.number);
    if (name == "audio_bitrate" || name == "video_bitrate") return Grouped(field.number / 1000) + " kbit/s";
    if (name == "sample_rate") return Grouped(field.number) + " Hz";
    return "";
}

bool IsSaying(const Field& field) {
    if (field.kind == Field::kReal) return field.real != 0;
    return field.kind == Field::kText ? !field.text.empty()
                                      : field.kind == Field::kBoolean || field.number != 0;
}

void AddRecord(const ctl::Record& record, Markup& to) {
    to << "<dl class=\"fields\">";
    for (const auto& [name, field] : record) {
        if (!IsSaying(field)) continue;
        const std::string human = HumanText(name, field);
        to << "<dt>";
        to.Text(Words(name)) << "</dt><dd>";
        if (human.empty())
            to.Name(field.text);
        else
            to.Text(human) << " <span class=\"muted\">", to.Text("(" + field.text + ")") << "</span>";
        to << "</dd>";
    }
    to << "</dl>";
}

}  // namespace

void AddSections(const std::vector<ctl::Section>& sections, Markup& to) {
    for (const ctl::Section& section : sections) {
        const char* const shown = ShownFor(kSections, section.name);
        to << "<section class=\"block\"><h2>";
        to.Text(shown != nullptr ? shown : Words(section.name)) << "</h2>";
        for (const ctl::Record& record : section.records)
            AddRecord(record, to);
        to << "</section>";
    }
}

}  // namespace koli::serve
