#include "tools/ctl/list.h"

#include <algorithm>
#include <optional>

#include "platform/host/tables.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

const std::vector<std::string> kShownColumns = {"title", "artist", "album", "path"};

/// Only columns that there are.
std::optional<host::ColumnCondition> ParseCondition(const std::string& text,
                                                    const std::vector<std::string>& columns) {
    const size_t sign = text.find_first_of("=~");
    if (sign == std::string::npos) return std::nullopt;
    host::ColumnCondition condition{text.substr(0, sign), text[sign] == '~', text.substr(sign + 1)};
    if (std::find(columns.begin(), columns.end(), condition.column) == columns.end()) return std::nullopt;
    return condition;
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text.append(text.empty() ? "" : ", ").append(word);
    return text;
}

void PrintRows(const std::string& kind, host::SqlStatement& rows, RowPrinter* printer) {
    while (rows.Next()) {
        std::vector<Field> fields{kind};
        for (int column = 0; column < rows.columns(); ++column)
            fields.push_back(Field::Of(rows, column));
        printer->Row(fields);
    }
}

}  // namespace

int List(const Context& context, const ListOptions& options) {
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    std::vector<std::string> columns = store.Columns(host::kMediaTables[0]);
    const bool is_empty = columns.empty();
    if (is_empty) columns = kShownColumns;
    host::RowSelection selection{{}, options.below.empty() ? "" : DaemonPath(options.below), options.limit};
    for (const std::string& text : options.where) {
        const auto condition = ParseCondition(text, columns);
        if (!condition && !is_empty) {
            Complain("%s: not COLUMN=VALUE or COLUMN~TEXT; columns are %s", text.c_str(),
                     Joined(columns).c_str());
            return kExitUsage;
        }
        if (condition) selection.conditions.push_back(*condition);
    }

    const std::vector<std::string>& shown = context.json ? columns : kShownColumns;
    std::vector<std::string> headings{"kind"};
    headings.insert(headings.end(), shown.begin(), shown.end());
    RowPrinter printer(headings, context.json);
    for (int type = 0; type < host::kMediaStoreTables; ++type) {
        const std::string kind = host::kMediaTables[type];
        const bool is_wanted = options.kinds.empty() || std::find(options.kinds.begin(), options.kinds.end(),
                                                                  kind) != options.kinds.end();
        if (!is_wanted) continue;
        const auto rows = store.List(host::kMediaTables[type], shown, selection);
        if (rows != nullptr) PrintRows(kind, *rows, &printer);
    }
    return StoreResult(store, kExitDone);
}

int Problems(const Context& context, const std::string& below) {
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    RowPrinter printer({"time", "reason", "path"}, context.json);
    const auto rows = store.List(host::kProblemTable, {"time", "reason", "path"},
                                 {.below = below.empty() ? "" : DaemonPath(below)});
    while (rows != nullptr && rows->Next())
        printer.Row({rows->Field(0), rows->Field(1), rows->Field(2)});
    return StoreResult(store, printer.count() > 0 ? kExitDifferences : kExitDone);
}

}  // namespace koli::ctl
