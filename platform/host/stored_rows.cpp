#include "platform/host/stored_rows.h"

#include "platform/host/tables.h"

namespace koli::host {

StoredRows::StoredRows(const DatabaseReader& reader, const std::string& first, const std::string& behind,
                       bool with_library) {
    const auto add = [&](const char* table, int type) {
        Source source{reader.Between(table, first, behind), {.type = type}};
        if (source.rows != nullptr && Advance(source)) sources_.push_back(std::move(source));
    };
    for (int type = 0; type < kMediaStoreTables; ++type)
        add(kMediaTables[type], type);
    add(kDirectoryTable, kRowFolder);
    add(kProblemTable, kRowProblem);
    if (with_library) add(kPhotoTables[KOLI_PHOTO_INFO], kRowLibrary);
    FindFirst();
}

bool StoredRows::Advance(Source& source) {
    if (!source.rows->Next()) return false;
    source.row.path = source.rows->Field(0);
    source.row.size = source.rows->Number(1);
    source.row.ctime = source.rows->Field(2);
    source.row.has_cover = source.rows->Number(3) != 0;
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

}  // namespace koli::host
