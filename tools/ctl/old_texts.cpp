#include "tools/ctl/old_texts.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "audio/flac.h"
#include "audio/mp3.h"
#include "base/formats.h"
#include "base/log.h"
#include "base/media_fields.h"
#include "base/path_names.h"
#include "index/record/util.h"
#include "platform/host/text_utf8.h"
#include "platform/kolidb.h"
#include "platform/koliindex.h"
#include "tools/ctl/context.h"

namespace koli::ctl {
namespace {

constexpr const char kModule[] = "koliindexctl";

struct TextsTake {
    template <size_t N>
    void operator()(const MediaField<char[N]>& field) {
        if (field.utf16 == nullptr) return;
        const std::string_view text = host::FieldText(record.*field.member);
        if (record.*field.utf16 != 1 && !host::IsUtf8Text(text))
            texts->push_back({column, std::string(text)});
        ++column;
    }
    template <typename Number>
    void operator()(const MediaField<Number>&) {}

    const MediaInfo& record;
    std::vector<OldText>* texts;
    size_t column = 0;
};

int Refuse(const std::string& path, const char* why, int code) {
    Complain("%s: %s", path.c_str(), why);
    return code;
}

/// Fills the record's texts as the daemon would.  Damage is the daemon's to tell, once it reads the file.
bool ReadRecord(const KnownPath& path, FormatReader reader, MediaInfo* record) {
    log_sink = [](const char*) {};
    FileReading reading(path.text(), FileReading::kInChild);
    TitleFromPath(path.text(), record->title, sizeof record->title);
    if (reader == FormatReader::kMp3)
        Mp3TagsRead(path.text(), record, reading);
    else
        FlacMetadataRead(path, record, reading);
    MediaInfoValid(record);
    MediaInfoNames(path.text(), NamesFromPath::kOnlyEmpty, record, LogSite(kModule));
    log_sink = nullptr;
    return reading.IsWhole();
}

}  // namespace

std::vector<std::string> TextColumns() {
    std::vector<std::string> columns;
    EachMediaField([&columns](const auto& field) {
        if (field.utf16 != nullptr) columns.emplace_back(field.column);
    });
    return columns;
}

int OldTextsRead(const std::string& path, std::vector<OldText>* texts) {
    const KnownPath known(path.c_str());
    if (known.status() == nullptr) return Refuse(path, strerror(errno), kExitFiles);
    const Format* format = FormatFind(KOLIIndexExtGet(path.c_str()));
    const bool is_known =
        format != nullptr && (format->reader == FormatReader::kMp3 || format->reader == FormatReader::kFlac);
    if (known.file() == nullptr || !is_known)
        return Refuse(path, "only the tags of MP3 and FLAC files are looked at", kExitUsage);
    if (access(path.c_str(), R_OK) != 0) return Refuse(path, strerror(errno), kExitFiles);

    MediaInfo record{};
    if (!ReadRecord(known, format->reader, &record)) return Refuse(path, "it cannot be read", kExitFiles);
    EachMediaField(TextsTake{record, texts});
    return kExitDone;
}

}  // namespace koli::ctl
