#include "tools/ctl/media_columns.h"

#include <algorithm>
#include <type_traits>

#include "base/media_fields.h"
#include "tools/ctl/suggestion.h"

namespace koli::ctl {

const std::vector<MediaColumn>& MediaColumns() {
    static const std::vector<MediaColumn> columns = [] {
        std::vector<MediaColumn> all;
        EachMediaField([&all](const auto& field) {
            constexpr bool kIsText =
                std::is_array_v<std::remove_reference_t<decltype(MediaInfo{}.*field.member)>>;
            all.push_back({field.column, !kIsText});
        });
        return all;
    }();
    return columns;
}

const MediaColumn* MediaColumnFind(std::string_view name) {
    const auto& columns = MediaColumns();
    const auto found = std::find_if(columns.begin(), columns.end(),
                                    [name](const MediaColumn& column) { return column.name == name; });
    return found != columns.end() ? &*found : nullptr;
}

std::string MediaColumnNames() {
    std::string names;
    for (const MediaColumn& column : MediaColumns())
        names.append(names.empty() ? "" : ", ").append(column.name);
    return names;
}

std::string MediaColumnUnknown(const std::string& name) {
    if (name == "library")
        return "library: a column that --library '*' adds; to choose one, name it: --library NAME";
    std::vector<std::string> names;
    for (const MediaColumn& column : MediaColumns())
        names.push_back(column.name);
    const std::string meant = DidYouMean(name, names);
    return name + ": there is no such column" +
           (meant.empty() ? "; columns are " + MediaColumnNames() : meant);
}

}  // namespace koli::ctl
