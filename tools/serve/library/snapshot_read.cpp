#include "tools/serve/library/snapshot_read.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "base/media_info.h"
#include "base/path_names.h"
#include "index/record/share_path.h"
#include "platform/host/tables.h"
#include "platform/paths.h"
#include "tools/serve/library/table_cursor.h"

namespace koli::serve {
namespace {

using ctl::StoreReader;

constexpr size_t kCommentMax = 128;  // bytes of a comment that are searched
constexpr size_t kCaptionMax = 512;
constexpr size_t kMetMarks = 1 << 20;

/// Of every file, and behind them those that not every kind has.
const std::vector<std::string> kColumns = {"path",      "title",   "artist",    "album", "composer",
                                           "genre",     "comment", "year",      "track", "disc",
                                           "has_cover", "ctime",   "date_taken"};
enum Column : size_t {
    kPath,
    kTitle,
    kArtist,
    kAlbum,
    kComposer,
    kGenre,
    kComment,
    kYear,
    kTrack,
    kDisc,
    kHasCover,
    kCtime,
    kTaken
};
const std::vector<std::string> kCaptionColumns = {"path", "title", "description"};
const std::vector<std::string> kPictureColumns = {"path", "title", "description", "date_taken"};
enum CaptionColumn : size_t { kCaptionTitle = 1, kDescription, kPhotoTaken };

template <typename Number>
Number NumberOf(std::string_view text) {
    Number number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
}

class Reader {
  public:
    Reader(const StoreReader& store, const Snapshot& earlier, const std::function<bool()>& is_wanted,
           Snapshot* snapshot)
        : store_(store), is_wanted_(is_wanted), snapshot_(*snapshot) {
        snapshot_.compare = store.Comparison();
        snapshot_.texts.pool.ShareWith(earlier.texts.pool);
        for (size_t kind = 0; kind < kFileKinds; ++kind) {
            snapshot_.kinds[kind].names.ShareWith(earlier.kinds[kind].names);
            snapshot_.kinds[kind].files.ShareWith(earlier.kinds[kind].files);
        }
        snapshot_.album_texts.ShareWith(earlier.album_texts);
        NumberOfText("");
    }

    bool Files() {
        Kind(FileKind::kSong, nullptr);
        Kind(FileKind::kFilm, host::kPhotoTables[KOLI_VIDEO_DESC]);
        Kind(FileKind::kPicture, host::kPhotoTables[KOLI_PHOTO_INFO]);
        Kind(FileKind::kPlaylist, nullptr);
        return is_going_on_;
    }
    void PhotoAlbums();
    void Folders();
    void Finish();

  private:
    void Kind(FileKind kind, const char* captions);
    void Add(FileKind kind, const std::string& path, const TableCursor* tags, const TableCursor* caption);
    uint32_t Entry(FilesOfKind* files, std::string_view name, std::string_view title,
                   std::initializer_list<std::string_view> others, uint16_t* title_at);
    uint32_t NumberOfText(std::string_view text);
    bool IsMetAgain(std::string_view text);
    uint32_t FolderNumber(std::string_view folder);

    const StoreReader& store_;
    const std::function<bool()>& is_wanted_;
    Snapshot& snapshot_;
    std::unordered_map<size_t, uint32_t> numbers_;  // of texts, by their hash
    std::unordered_set<uint32_t> folders_;
    std::vector<bool> met_ = std::vector<bool>(kMetMarks);
    std::string others_, line_;
    bool is_going_on_ = true;
};

uint32_t Reader::NumberOfText(std::string_view text) {
    text = text.substr(0, text.find('\0'));  // a pool's texts end there
    Texts& texts = snapshot_.texts;
    // The texts themselves stand in the pool alone.
    for (size_t hash = std::hash<std::string_view>{}(text);; ++hash) {
        const auto [found, is_new] = numbers_.try_emplace(hash, static_cast<uint32_t>(texts.places.size()));
        if (is_new) texts.places.push_back(texts.pool.Add(text));
        if (is_new || texts.Text(found->second) == text) return found->second;
    }
}

/// Whether the text has been met before; sometimes true of one that has not.
bool Reader::IsMetAgain(std::string_view text) {
    const size_t mark = std::hash<std::string_view>{}(text) % kMetMarks;
    const bool is_met = met_[mark];
    met_[mark] = true;
    return is_met;
}

uint32_t Reader::FolderNumber(std::string_view folder) {
    const uint32_t number = NumberOfText(folder);
    if (folders_.insert(number).second) snapshot_.folders.push_back(number);
    return number;
}

/// What two tables hold of the same path is one file, and either may lack it.
void Reader::Kind(FileKind kind, const char* captions) {
    TableCursor tags(store_, host::kMediaTables[static_cast<size_t>(kind)], kColumns);
    TableCursor other(store_, captions != nullptr ? captions : "",
                      kind == FileKind::kPicture ? kPictureColumns : kCaptionColumns);
    while (is_going_on_ && (tags.HasRow() || (kind == FileKind::kPicture && other.HasRow()))) {
        const bool are_both = tags.HasRow() && other.HasRow();
        const int order = are_both ? snapshot_.compare(tags.Key(), other.Key()) : 0;
        const bool has_tags = tags.HasRow() && order <= 0;
        const bool has_other = other.HasRow() && order >= 0;
        // A film's caption outlives the film.
        if (has_tags || kind == FileKind::kPicture)
            Add(kind, std::string(has_tags ? tags.Key() : other.Key()), has_tags ? &tags : nullptr,
                has_other ? &other : nullptr);
        if (has_tags) tags.Next();
        if (has_other) other.Next();
        if (tags.IsAtPieceBegin() || other.IsAtPieceBegin()) is_going_on_ = is_wanted_();
    }
}

/// The name, and behind it what is not already in it.
uint32_t Reader::Entry(FilesOfKind* files, std::string_view name, std::string_view title,
                       std::initializer_list<std::string_view> others, uint16_t* title_at) {
    std::string folded_name;
    FoldLineTo(name, &folded_name);
    FoldLineTo(title, &line_);
    others_.clear();
    const size_t at = folded_name.find(line_);
    *title_at = static_cast<uint16_t>(at != std::string::npos ? at : folded_name.size() + 1);
    if (at == std::string::npos) others_.append(line_).append("\n");
    for (const std::string_view other : others) {
        FoldLineTo(other.substr(0, kCaptionMax), &line_);
        if (!line_.empty()) others_.append(line_).append("\n");
    }
    return files->names.Add(name, others_);
}

void Reader::Add(FileKind kind, const std::string& path, const TableCursor* tags,
                 const TableCursor* caption) {
    const auto tag = [&](size_t column) {
        return tags != nullptr ? tags->Field(column) : std::string_view();
    };
    const auto said = [&](size_t column) {
        return caption != nullptr ? caption->Field(column) : std::string_view();
    };
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos || slash + 1 == path.size()) return;
    FilesOfKind& files = snapshot_.Of(kind);
    const auto number = static_cast<uint32_t>(files.files.size());
    // A comment that no other file has would make a group of its own.
    const std::string_view comment = tag(kComment).substr(0, kCommentMax);
    const bool is_common = !comment.empty() && IsMetAgain(comment);
    Group group{FolderNumber(std::string_view(path).substr(0, slash)),
                NumberOfText(tag(kArtist)),
                NumberOfText(tag(kAlbum)),
                NumberOfText(tag(kGenre)),
                NumberOfText(tag(kComposer)),
                is_common ? NumberOfText(comment) : 0,
                0,
                number,
                NumberOf<uint16_t>(tag(kYear))};
    const auto same = [](const Group& g) {
        return std::tuple(g.folder, g.artist, g.album, g.genre, g.composer, g.comment, g.year);
    };
    if (files.groups.size() == 0 || same(files.groups.back()) != same(group)) files.groups.push_back(group);
    File file{};
    const std::string_view title = said(kCaptionTitle).empty() ? tag(kTitle) : said(kCaptionTitle);
    file.name = Entry(&files, std::string_view(path).substr(slash + 1), title,
                      {said(kDescription), is_common ? std::string_view() : comment}, &file.title_at);
    file.group = static_cast<uint32_t>(files.groups.size() - 1);
    file.track = NumberOf<uint16_t>(tag(kTrack));
    file.disc = static_cast<uint8_t>(std::min<unsigned>(NumberOf<unsigned>(tag(kDisc)), UINT8_MAX));
    file.has_cover = NumberOf<int>(tag(kHasCover)) != 0;
    if (kind != FileKind::kPicture)
        file.moment = MomentOf(tag(kCtime));
    else if (file.moment = MomentOf(tag(kTaken)); file.moment == 0)
        file.moment = MomentOf(said(kPhotoTaken));
    files.files.push_back(file);
}

/// Where the photo share is: what its link says, or else where its pictures are.
std::string PhotoTop(const Snapshot& snapshot) {
    char target[kPathSize];
    if (ShareTargetGet(paths::kPhotoShare, target)) return target;
    for (const uint32_t folder : snapshot.folders) {
        const std::string path = snapshot.texts.Text(folder);
        if (IsPhotoSharePath(path.c_str()) != 0) return path.substr(0, kShareTopLength);
    }
    return "";
}

void Reader::PhotoAlbums() {
    snapshot_.photo_top = PhotoTop(snapshot_);
    std::unordered_map<uint32_t, uint32_t> counts;
    const FilesOfKind& pictures = snapshot_.Of(FileKind::kPicture);
    for (size_t group = 0; group < pictures.groups.size(); ++group)
        counts[pictures.groups[group].folder] += pictures.Behind(group) - pictures.First(group);
    std::map<std::string, std::string> albums;  // by name: what else is searched
    TableCursor rows(store_, host::kPhotoTables[KOLI_PHOTO_SHARE], {"sharename", "title", "description"});
    for (; rows.HasRow(); rows.Next()) {
        std::string& others = albums[std::string(rows.Key())];
        for (const size_t column : {size_t{1}, size_t{2}}) {
            FoldLineTo(rows.Field(column), &line_);
            others.append(line_).append("\n");
        }
    }
    for (const auto& [name, others] : albums) {
        const uint32_t number = snapshot_.FolderOf(snapshot_.photo_top + "/" + name);
        const auto count = counts.find(number);
        snapshot_.photo_albums.push_back({snapshot_.album_texts.Add(name, others), number,
                                          number != 0 && count != counts.end() ? count->second : 0});
    }
}

void Reader::Folders() {
    std::sort(snapshot_.folders.begin(), snapshot_.folders.end(),
              [this](uint32_t a, uint32_t b) { return snapshot_.texts.Text(a) < snapshot_.texts.Text(b); });
    snapshot_.folders.shrink_to_fit();
}

void Reader::Finish() {
    snapshot_.texts.pool.Finish();
    for (FilesOfKind& files : snapshot_.kinds) {
        files.names.Finish();
        files.files.Finish();
    }
    snapshot_.album_texts.Finish();
}

}  // namespace

std::shared_ptr<const Snapshot> SnapshotRead(const StoreReader& store, const Snapshot& earlier,
                                             const std::function<bool()>& is_wanted) {
    auto snapshot = std::make_shared<Snapshot>();
    {
        Reader reader(store, earlier, is_wanted, snapshot.get());
        if (!reader.Files()) return nullptr;
        reader.Folders();
        reader.PhotoAlbums();
        reader.Finish();
    }
    snapshot->problems = static_cast<size_t>(store.Count(host::kProblemTable));
    SnapshotGroup(snapshot.get());
    snapshot->error = store.error();
    return snapshot;
}

}  // namespace koli::serve
