#include "tools/ctl/stats.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <map>
#include <utility>
#include <vector>

#include "base/text/fold.h"
#include "platform/host/library_counts.h"
#include "platform/host/tables.h"
#include "platform/koliindex.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

using host::CountedBy;
using host::LibraryCounts;

constexpr const char kMusic[] = "music";
constexpr const char kPhoto[] = "photo";
constexpr int kMost = 10;            // artists, genres, cameras
constexpr int kYearsMax = 1000;      // of which there are some hundred at most, unless tags are nonsense
constexpr size_t kFormatsMax = 200;  // the daemon stores fewer; other programs' rows must not fill the memory
constexpr double kSecondsOfHour = 3600;

// ---- Counting

Record TotalsOf(const StoreReader& store, const LibraryCounts& counts, const std::string& below) {
    const auto different = [&counts](const char* table, CountedBy by) { return counts.Different(table, by); };
    const std::string share = VolumePath(paths::kPhotoShare) + "/";
    int64_t albums = 0;
    for (const auto rows = store.Albums(); rows != nullptr && rows->Next();)
        albums += below.empty() || IsAtOrBelow(share + std::string(rows->Field(0)), below) ? 1 : 0;
    return {{"artists", different(kMusic, CountedBy::kArtist)},
            {"albums", different(kMusic, CountedBy::kAlbum)},
            {"genres", different(kMusic, CountedBy::kGenre)},
            {"cameras", different(kPhoto, CountedBy::kCamera)},
            {"photo_albums", albums},
            {"folders", counts.Rows(host::kDirectoryTable)},
            {"problems", counts.Rows(host::kProblemTable)}};
}

Section KindsOf(const LibraryCounts& counts) {
    Section section{"kinds"};
    for (int type = 0; type < host::kMediaStoreTables; ++type) {
        const host::TableTotals totals = counts.Totals(host::kMediaTables[type]);
        section.records.push_back({{"kind", host::kMediaTables[type]},
                                   {"files", totals.rows},
                                   {"bytes", totals.bytes},
                                   {"hours", Field::Real(totals.seconds / kSecondsOfHour)}});
    }
    return section;
}

/// All kinds together.
Section LibrariesOf(const LibraryCounts& counts) {
    std::map<std::string, host::TableTotals> libraries;
    for (int type = 0; type < host::kMediaStoreTables; ++type)
        for (const auto& [library, totals] : counts.TotalsByLibrary(host::kMediaTables[type])) {
            host::TableTotals& all = libraries[library];
            all.rows += totals.rows;
            all.bytes += totals.bytes;
            all.seconds += totals.seconds;
        }
    Section section{"libraries"};
    for (const auto& [library, totals] : libraries)
        section.records.push_back({{"library", library},
                                   {"files", totals.rows},
                                   {"bytes", totals.bytes},
                                   {"hours", Field::Real(totals.seconds / kSecondsOfHour)}});
    return section;
}

std::string FormatOf(const std::string& path) {
    const char* const extension = KOLIIndexExtGet(path.c_str());
    return extension != nullptr ? Folded(extension) : "";
}

/// No text of both engines' SQL tells an extension: so these are counted here.
void AddFormats(const StoreReader& store, const char* kind, const std::string& below, Section* section) {
    std::map<std::string, std::pair<int64_t, int64_t>> formats;  // files, bytes
    for (const auto rows = store.List(kind, {"path", "file_size"}, {.below = below});
         rows != nullptr && rows->Next();) {
        std::string format = FormatOf(std::string(rows->Field(0)));
        if (formats.size() >= kFormatsMax && !formats.contains(format)) format = "";
        auto& [files, bytes] = formats[format];
        ++files;
        bytes += rows->Number(1);
    }
    std::vector<std::pair<std::string, std::pair<int64_t, int64_t>>> sorted(formats.begin(), formats.end());
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& a, const auto& b) { return a.second.first > b.second.first; });
    for (const auto& [format, numbers] : sorted)
        section->records.push_back(
            {{"kind", kind}, {"format", format}, {"files", numbers.first}, {"bytes", numbers.second}});
}

Section FormatsOf(const StoreReader& store, const std::string& below) {
    Section section{"formats"};
    for (int type = 0; type < host::kMediaStoreTables; ++type)
        AddFormats(store, host::kMediaTables[type], below, &section);
    return section;
}

Section GroupsOf(const char* name, const char* column, const std::vector<host::ValueCount>& groups) {
    Section section{name};
    for (const auto& [value, rows] : groups)
        section.records.push_back({{column, value}, {"files", rows}});
    return section;
}

Section YearsOf(const char* name, const std::vector<host::ValueCount>& groups) {
    Section section{name};
    for (const auto& [value, rows] : groups)
        section.records.push_back({{"year", int64_t{strtoll(value.c_str(), nullptr, 10)}}, {"files", rows}});
    return section;
}

// ---- Printing for people

/// One table.  `first` heads its first column, null: the field's name.
void PrintTable(const Section& section, const char* first = nullptr) {
    if (section.records.empty()) return;
    std::vector<std::string> names;
    for (const auto& [name, field] : section.records.front())
        names.push_back(name == "bytes" ? "size" : name);
    if (first != nullptr) names.front() = first;
    printf("\n");
    RowPrinter printer(names, false);
    for (const Record& record : section.records) {
        std::vector<Field> fields;
        for (const auto& [name, field] : record)
            if (name == "bytes")
                fields.emplace_back(SizeText(field.number));
            else if (field.kind == Field::kReal)
                fields.push_back(Field::Real(std::round(field.real * 10) / 10));
            else
                fields.push_back(field);
        printer.Row(fields);
    }
}

/// Years as decades.
Section Decades(const Section& years) {
    std::map<int64_t, int64_t> decades;
    for (const Record& record : years.records)
        decades[record[0].second.number / 10 * 10] += record[1].second.number;
    Section section{"decades"};
    for (const auto& [decade, files] : decades)
        section.records.push_back({{"years", std::to_string(decade) + "s"}, {"files", files}});
    return section;
}

void PrintForPeople(const std::vector<Section>& sections) {
    PrintSections({sections.front()}, false);
    for (size_t i = 1; i < sections.size(); ++i)
        if (sections[i].name == "years")
            PrintTable(Decades(sections[i]), "music of");
        else
            PrintTable(sections[i], sections[i].name == "years_taken" ? "photos of" : nullptr);
}

}  // namespace

int Stats(const Context& context, const std::string& given) {
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    const std::string below = DaemonPath(given);
    if (!below.empty() && !store.HasRowsAt(below)) return ResultBelow(store, below, false, kExitDone);
    const LibraryCounts counts(store, below);
    std::vector<Section> sections = {
        {"totals", {TotalsOf(store, counts, below)}, true},
        KindsOf(counts),
        FormatsOf(store, below),
        YearsOf("years", counts.InOrder(kMusic, CountedBy::kYear, kYearsMax)),
        GroupsOf("genres", "genre", counts.Most(kMusic, CountedBy::kGenre, kMost)),
        GroupsOf("artists", "artist", counts.Most(kMusic, CountedBy::kArtist, kMost)),
        GroupsOf("cameras", "camera", counts.Most(kPhoto, CountedBy::kCamera, kMost)),
        YearsOf("years_taken", counts.InOrder(kPhoto, CountedBy::kTakenYear, kYearsMax))};
    if (store.HasEveryLibrary()) sections.insert(sections.begin() + 1, LibrariesOf(counts));
    if (const int code = StoreResult(store, kExitDone); code != kExitDone) return code;
    if (context.json)
        PrintSections(sections, true);
    else
        PrintForPeople(sections);
    return kExitDone;
}

}  // namespace koli::ctl
