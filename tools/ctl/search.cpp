#include "tools/ctl/search.h"

#include <algorithm>
#include <memory>
#include <string_view>
#include <utility>

#include "base/path_names.h"
#include "base/text/fold.h"
#include "platform/host/tables.h"
#include "platform/koliindex.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/searched.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

using Texts = std::vector<std::string>;

const Texts kShown = {"kind", "title", "artist", "album", "path"};
constexpr const char kLibrary[] = "library";
enum Column : int { kPath, kTitle, kArtist, kAlbum };

/// Rows of one table in the order of their paths.
class Cursor {
  public:
    /// `prefix` stands before what the first column holds; null rows are none.  With `has_library` the last
    /// column tells of which library a row is.
    Cursor(std::unique_ptr<host::SqlStatement> rows, bool has_library, std::string prefix = "")
        : rows_(std::move(rows)), prefix_(std::move(prefix)), libraries_(has_library ? 1 : 0) {
        Next();
    }
    void Next() {
        has_row_ = rows_ != nullptr && rows_->Next();
        if (!has_row_) return;
        path_.assign(prefix_).append(rows_->Field(kPath));
        key_.assign(path_).append(1, '\0').append(library());
    }
    /// True when this row is the next of both; without a row it is not.
    bool IsNext(const Cursor& other) const { return has_row_ && (!other.has_row_ || key_ <= other.key_); }
    std::string_view library() const { return libraries_ > 0 ? rows_->Field(columns()) : ""; }

    const std::string& path() const { return path_; }
    std::string_view Text(int column) const {
        return column < columns() ? rows_->Field(column) : std::string_view();
    }
    void AppendTexts(std::string* text) const {
        for (int column = kTitle; column < columns(); ++column)
            text->append("\n").append(rows_->Field(column));
    }

  private:
    int columns() const { return rows_->columns() - libraries_; }

    std::unique_ptr<host::SqlStatement> rows_;
    std::string prefix_;
    int libraries_;  // columns
    std::string path_, key_;
    bool has_row_ = false;
};

class Searcher {
  public:
    Searcher(const StoreReader& store, Texts words, std::string below, KindRows* out)
        : store_(store), words_(std::move(words)), below_(std::move(below)), out_(out) {}

    void Kind(const std::string& kind) {
        out_->Begin(kind);
        if (kind == "folder") return Pass(kind, Rows(host::kDirectoryTable, {"path", "title"}), Albums());
        Pass(kind, Rows(kind.c_str(), SearchedTags()),
             kind == "video"   ? Rows(host::kPhotoTables[KOLI_VIDEO_DESC], SearchedCaption())
             : kind == "photo" ? Rows(host::kPhotoTables[KOLI_PHOTO_INFO], SearchedCaption())
                               : Cursor(nullptr, false));
    }

  private:
    Cursor Rows(const char* table, Texts columns) const {
        if (store_.HasEveryLibrary()) columns.emplace_back(kLibrary);
        return {store_.List(table, columns, {.below = below_}), store_.HasEveryLibrary()};
    }
    Cursor Albums() const {
        const std::string share = VolumePath(paths::kPhotoShare);
        return {share.empty() ? nullptr : store_.Albums(), store_.HasEveryLibrary(), share + "/"};
    }

    /// What two tables hold of the same path of a library is one row, and either may lack it.
    void Pass(const std::string& kind, Cursor tags, Cursor captions) {
        while (out_->HasRoom()) {
            const bool has_tags = tags.IsNext(captions), has_caption = captions.IsNext(tags);
            if (!has_tags && !has_caption) break;
            const std::string& path = has_tags ? tags.path() : captions.path();
            text_ = FileNameOf(path.c_str());
            if (has_tags) tags.AppendTexts(&text_);
            if (has_caption) captions.AppendTexts(&text_);
            if (IsBelow(path) && IsFound()) {
                const auto tag = [&](int column) { return has_tags ? tags.Text(column) : ""; };
                const bool is_titled = has_caption && !captions.Text(kTitle).empty();
                std::vector<Field> fields = {kind, is_titled ? captions.Text(kTitle) : tag(kTitle),
                                             tag(kArtist), tag(kAlbum), path};
                if (store_.HasEveryLibrary())
                    fields.insert(fields.begin(), has_tags ? tags.library() : captions.library());
                out_->Row(fields, path);
            }
            if (has_tags) tags.Next();
            if (has_caption) captions.Next();
        }
    }

    /// Albums are not asked for by path.
    bool IsBelow(const std::string& path) const { return below_.empty() || IsAtOrBelow(path, below_); }
    bool IsFound() {
        FoldTo(text_, &folded_);
        return std::all_of(words_.begin(), words_.end(), [this](const std::string& word) {
            return folded_.find(word) != std::string::npos;
        });
    }

    const StoreReader& store_;
    const Texts words_;
    const std::string below_;
    KindRows* const out_;
    std::string text_, folded_;
};

}  // namespace

int Search(const Context& context, const std::vector<std::string>& texts, const RowsOptions& options) {
    Texts words = SearchedWords(texts);
    if (words.empty()) {
        Complain("search: there is no word in it");
        return kExitUsage;
    }
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    const std::string below = DaemonPath(options.below);
    Texts shown = kShown;
    if (store.HasEveryLibrary()) shown.insert(shown.begin(), kLibrary);
    KindRows out(context, options, shown);
    Searcher searcher(store, std::move(words), below, &out);
    for (const std::string& kind : kSearchedKinds)
        if (options.Wants(kind)) searcher.Kind(kind);
    out.End();
    return ResultBelow(store, below, out.total() > 0, out.total() > 0 ? kExitDone : kExitDifferences);
}

}  // namespace koli::ctl
