#include "tools/ctl/list.h"

#include <algorithm>
#include <iterator>
#include <vector>

#include "base/text/fold.h"
#include "platform/host/tables.h"
#include "tools/ctl/conditions.h"
#include "tools/ctl/media_columns.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

using Texts = std::vector<std::string>;

constexpr const char kKind[] = "kind";
constexpr const char kLibrary[] = "library";

bool HasEveryLibrary(const Context& context) {
    return context.places.library == kEveryLibrary;
}

/// What is shown, column by column.
Texts ShownColumns(const Context& context, const ListOptions& options) {
    if (!options.columns.empty()) return options.columns;
    Texts shown{kKind};
    if (HasEveryLibrary(context)) shown.insert(shown.begin(), kLibrary);
    if (!context.json)
        shown.insert(shown.end(), {"title", "artist", "album", "path"});
    else
        for (const MediaColumn& column : MediaColumns())
            shown.push_back(column.name);
    return shown;
}

/// What stands in the options and cannot be; "" when all can.
std::string Refusal(const Context& context, const ListOptions& options, Conditions* conditions) {
    for (const std::string& column : options.columns) {
        const bool is_library = HasEveryLibrary(context) && column == kLibrary;
        if (column != kKind && !is_library && MediaColumnFind(column) == nullptr)
            return MediaColumnUnknown(column);
    }
    if (!options.sort.empty() && MediaColumnFind(options.sort) == nullptr)
        return MediaColumnUnknown(options.sort);
    for (const std::string& text : options.where)
        if (std::string refusal = conditions->Add(text); !refusal.empty()) return refusal;
    return "";
}

host::RowSelection SelectionOf(const ListOptions& options, const Conditions& conditions) {
    const MediaColumn* const sort = MediaColumnFind(options.sort);
    return {.conditions = conditions.of_database(),
            .below = DaemonPath(options.below),
            .limit = conditions.Columns().empty() ? options.limit : 0,
            .sort = options.sort,
            .sort_key = sort == nullptr || sort->is_number ? nullptr : SortKeyTo,
            .is_reversed = options.reverse};
}

/// The rows of a kind: the path first, then what is shown, then what the conditions look at.
void PrintKind(const std::string& kind, host::SqlStatement& rows, const Texts& shown, Conditions& conditions,
               KindRows* out) {
    const auto judged_columns = static_cast<int>(conditions.Columns().size());
    while (out->HasRoom() && rows.Next()) {
        const int judged = rows.columns() - judged_columns;
        if (!conditions.Hold(rows, judged)) continue;
        std::vector<Field> fields;
        int column = 1;
        for (const std::string& name : shown)
            if (name == kKind)
                fields.emplace_back(kind);
            else
                fields.push_back(Field::Of(rows, column++));
        out->Row(fields, rows.Field(0));
    }
}

}  // namespace

int List(const Context& context, const ListOptions& options) {
    Conditions conditions;
    if (const std::string refusal = Refusal(context, options, &conditions); !refusal.empty()) {
        Complain("%s", refusal.c_str());
        return kExitUsage;
    }
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    KindRows out(context, options, ShownColumns(context, options));
    const Texts shown = out.WantsFields() ? ShownColumns(context, options) : Texts();
    Texts columns{"path"};
    std::copy_if(shown.begin(), shown.end(), std::back_inserter(columns),
                 [](const std::string& name) { return name != kKind; });
    for (const std::string& column : conditions.Columns())
        columns.push_back(column);

    const host::RowSelection selection = SelectionOf(options, conditions);
    for (int type = 0; type < host::kMediaStoreTables; ++type) {
        const std::string kind = host::kMediaTables[type];
        if (!options.Wants(kind)) continue;
        out.Begin(kind);
        const auto rows = store.List(host::kMediaTables[type], columns, selection);
        if (rows != nullptr) PrintKind(kind, *rows, shown, conditions, &out);
    }
    out.End();
    return ResultBelow(store, selection.below, out.total() > 0, kExitDone);
}

int Problems(const Context& context, const std::string& below) {
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    int64_t count = 0;
    {
        RowPrinter printer({"time", "reason", "path"}, context.json);
        const auto rows =
            store.List(host::kProblemTable, {"time", "reason", "path"}, {.below = DaemonPath(below)});
        while (rows != nullptr && rows->Next())
            printer.Row({rows->Field(0), rows->Field(1), rows->Field(2)});
        count = printer.count();
    }
    return ResultBelow(store, DaemonPath(below), count > 0, count > 0 ? kExitDifferences : kExitDone);
}

}  // namespace koli::ctl
