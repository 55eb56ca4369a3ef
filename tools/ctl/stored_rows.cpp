#include "tools/ctl/stored_rows.h"

#include "platform/host/schema.h"

namespace koli::ctl {

StoredRows::StoredRows(const StoreReader& store, const std::string& first, const std::string& behind,
                       bool with_library) {
    for (int type = 0; type < host::kMediaStoreTables; ++type)
        AddSource(store.media(), host::kMediaTables[type], type, first, behind);
    AddSource(store.media(), "directory", kRowFolder, first, behind);
    if (store.KnowsProblemKinds()) AddSource(store.media(), "problem", kRowProblem, first, behind);
    if (with_library) AddSource(store.photo(), "photo_info", kRowLibrary, first, behind);
    FindFirst();
}

void StoredRows::AddSource(host::SqlReader* reader, const char* table, int type, const std::string& first,
                           const std::string& behind) {
    if (reader == nullptr) return;
    const char* const columns = type == kRowFolder    ? "path, 0, '', 0"
                                : type == kRowProblem ? "path, kind, '', 0"
                                : type == kRowLibrary ? "path, file_size, ctime, 0"
                                                      : "path, file_size, ctime, has_cover";
    const char* const which = type == kRowProblem ? " AND kind <> 0" : "";
    Source source{reader->Query(std::string("SELECT ") + columns + " FROM " + table +
                                " WHERE path >= ?1 AND path < ?2" + which + " ORDER BY path"),
                  {}};
    if (source.cursor == nullptr) return;
    source.cursor->Text(1, first);
    source.cursor->Text(2, behind);
    source.row.type = type;
    if (Advance(source)) sources_.push_back(std::move(source));
}

bool StoredRows::Advance(Source& source) {
    if (!source.cursor->Next()) return false;
    source.row.path = source.cursor->Field(0);
    source.row.size = source.cursor->Number(1);
    source.row.ctime = source.cursor->Field(2);
    source.row.has_cover = source.cursor->Number(3) != 0;
    return true;
}

void StoredRows::FindFirst() {
    first_ = 0;
    for (size_t i = 1; i < sources_.size(); ++i)
        if (sources_[i].row.path < sources_[first_].row.path) first_ = i;
}

void StoredRows::Drop() {
    if (!Advance(sources_[first_])) sources_.erase(sources_.begin() + static_cast<ptrdiff_t>(first_));
    FindFirst();
}

}  // namespace koli::ctl
