#include "platform/host/sqlite/salvage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstring>
#include <map>

#include "platform/host/sqlite/table_form.h"

namespace koli::host {
namespace {

constexpr uint32_t kSchemaPage = 1;
enum SchemaColumn : size_t { kType = 0, kName = 1, kRootPage = 3, kSchemaColumns = 5 };

/// From the pages of the one to the tables of the other.
class Salvager {
  public:
    Salvager(const PageFile& pages, Sqlite& sql, Salvage* result)
        : pages_(pages),
          sql_(sql),
          result_(result),
          forms_(TableForms(sql)),
          seen_(size_t{pages.page_count()} + 1) {
        for (const TableForm& form : forms_)
            result->tables.push_back({form.name});
    }

    bool Run() {
        const std::map<std::string, uint32_t> roots = Roots();
        for (size_t table = 0; table < forms_.size() && result_->error.empty(); ++table) {
            const auto root = roots.find(forms_[table].name);
            if (root == roots.end())
                result_->lost_contents = true;
            else
                SaveTree(table, root->second);
        }
        if (result_->error.empty()) SaveStrayRows();
        return !forms_.empty() && result_->error.empty();
    }

  private:
    /// The pages where the tables begin, as far as the list of tables can be read.
    std::map<std::string, uint32_t> Roots() {
        std::map<std::string, uint32_t> roots;
        VisitTree(kSchemaPage, TreePage::kTableLeaf, [&](const TreePage&, const PageRecord& record) {
            const std::vector<PageValue>& values = record.values;
            if (values.size() == kSchemaColumns && values[kType].text == "table" &&
                values[kRootPage].integer > 1 && values[kRootPage].integer <= pages_.page_count())
                roots.emplace(values[kName].text, static_cast<uint32_t>(values[kRootPage].integer));
        });
        return roots;
    }

    /// Every record of the tree at `root`, whose leaves are of this kind.  No page is visited twice.
    template <typename Visitor>
    void VisitTree(uint32_t root, TreePage::Kind leaf, Visitor visit) {
        std::vector<uint32_t> waiting{root};
        while (!waiting.empty() && result_->error.empty()) {
            const uint32_t number = waiting.back();
            waiting.pop_back();
            if (number == 0 || number > pages_.page_count() || seen_[number]) {
                ++result_->lost_pages;
                continue;
            }
            const TreePage page(pages_, number);
            if (page.kind() == TreePage::kOther || page.IsClustered() != (leaf == TreePage::kKeyLeaf)) {
                ++result_->lost_pages;
                continue;
            }
            seen_[number] = true;
            for (uint32_t cell = 0; page.HasRecords() && cell < page.cells(); ++cell) {
                PageRecord record;
                if (page.Record(cell, &record))
                    visit(page, record);
                else
                    ++result_->lost_rows;
            }
            const std::vector<uint32_t> below = page.Children();
            waiting.insert(waiting.end(), below.rbegin(), below.rend());
        }
    }

    void SaveTree(size_t table, uint32_t root) {
        const TableForm& form = forms_[table];
        VisitTree(root, form.is_clustered ? TreePage::kKeyLeaf : TreePage::kTableLeaf,
                  [&](const TreePage&, PageRecord& record) {
                      form.Complete(&record);
                      const bool has_key =
                          form.kinds[0] != PageValue::kText || !record.values[0].text.empty();
                      if (!has_key || !Insert(table, record)) ++result_->lost_rows;
                  });
    }

    /// What stands on pages that no tree has led to, and that are not unused.
    void SaveStrayRows() {
        const std::vector<bool> unused = pages_.UnusedPages();
        for (uint32_t number = kSchemaPage + 1; number <= pages_.page_count(); ++number) {
            if (seen_[number] || unused[number]) continue;
            const TreePage page(pages_, number);
            PageRecord record;
            for (uint32_t cell = 0; page.HasRecords() && cell < page.cells(); ++cell) {
                if (!page.Record(cell, &record)) continue;
                SaveStrayRow(page, record);
                if (!result_->error.empty()) return;
            }
        }
    }

    void SaveStrayRow(const TreePage& page, PageRecord& record) {
        for (size_t table = 0; table < forms_.size(); ++table) {
            const TableForm& form = forms_[table];
            if (!form.is_unique || !form.IsOnPage(page.kind()) || !form.Fits(record)) continue;
            form.Complete(&record);
            if (Insert(table, record)) ++result_->tables[table].found;
            return;
        }
    }

    /// False when the row was refused, also because its key is there; a failure of the new database ends it
    /// all.
    bool Insert(size_t table, const PageRecord& record) {
        SqlStatement* insert = sql_.Kept(forms_[table].insert);
        if (insert == nullptr) {
            result_->error = sql_.failure().reason;
            return false;
        }
        int index = 0;
        for (const PageValue& value : record.values) {
            ++index;
            if (value.kind == PageValue::kText)
                insert->Text(index, value.text);
            else if (value.kind == PageValue::kReal)
                insert->Real(index, std::isfinite(value.real) ? value.real : 0);
            else
                insert->Integer(index, value.integer);
        }
        const int affected = sql_.Run(*insert);
        if (affected < 0 && !sql_.InTransaction()) result_->error = sql_.failure().reason;
        if (affected > 0) ++result_->tables[table].rows;
        return affected > 0;
    }

    const PageFile& pages_;
    Sqlite& sql_;
    Salvage* result_;
    const std::vector<TableForm> forms_;
    std::vector<bool> seen_;  // [number]
};

/// Rights of an album that is lost would pass to the next one that gets its number.
constexpr const char kDropOrphans[] =
    "DELETE FROM photo_access_right WHERE shareid NOT IN (SELECT shareid FROM photo_share)";

void DropOrphanedRights(Sqlite& sql, Salvage* result) {
    for (SalvagedTable& table : result->tables) {
        if (table.name != "photo_access_right") continue;
        const int dropped = sql.Execute(kDropOrphans);
        if (dropped < 0) result->error = sql.failure().reason;
        if (dropped <= 0) continue;
        table.rows -= dropped;
        result->lost_rows += dropped;
    }
}

void AddPrivateAlbums(const std::vector<std::string>& albums, Sqlite& sql, Salvage* result) {
    constexpr const char kInsert[] =
        "INSERT OR IGNORE INTO photo_share (sharename, public, is_subdir) VALUES (?1, 'f', ?2)";
    for (const std::string& album : albums) {
        SqlStatement* const insert = sql.Kept(kInsert);
        if (insert == nullptr) return;
        const bool is_subdir = album.find('/') != std::string::npos;
        if (sql.Run(insert->Fill(album, is_subdir ? "t" : "f")) > 0) ++result->private_albums;
    }
}

/// Like the damaged file, and on the disk.
bool Finish(const std::string& damaged, const std::string& made) {
    struct stat status;
    const int fd = open(made.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool done = stat(damaged.c_str(), &status) == 0 && fchown(fd, status.st_uid, status.st_gid) == 0 &&
                      fchmod(fd, status.st_mode & 0777) == 0 && fsync(fd) == 0;
    const int error = errno;
    close(fd);
    errno = error;
    return done;
}

}  // namespace

Salvage DatabaseSalvage(const std::string& damaged, const std::string& made, const Schema& schema,
                        const AlbumNames& albums) {
    Salvage result;
    const std::unique_ptr<PageFile> pages = PageFile::Open(damaged, &result.error);
    if (pages == nullptr) return result;
    for (const char* ending : {"", "-wal", "-shm", "-journal"})
        unlink((made + ending).c_str());
    SqlFailure failure;
    std::unique_ptr<Sqlite> sql = Sqlite::Open(made, nullptr, &failure);
    result.error = failure.reason;
    if (sql == nullptr) return result;
    bool done = sql->Begin() && SchemaRun(*sql, schema, 0) && Salvager(*pages, *sql, &result).Run();
    if (done) DropOrphanedRights(*sql, &result);
    if (done && albums != nullptr && !result.IsWhole()) AddPrivateAlbums(albums(), *sql, &result);
    // Without a log of its own: the file alone is the database.
    done = done && result.error.empty() && sql->Execute("COMMIT") >= 0 &&
           sql->QueryNumber("PRAGMA wal_checkpoint(TRUNCATE)") == 0 &&
           sql->Execute("PRAGMA journal_mode=DELETE") >= 0;
    if (!done && result.error.empty()) result.error = sql->failure().reason;
    sql.reset();
    if (done && !Finish(damaged, made)) result.error = strerror(errno);
    return result;
}

}  // namespace koli::host
