#include "tools/ctl/list.h"

#include <algorithm>
#include <optional>

#include "platform/host/schema.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {
namespace {

const std::vector<std::string> kShownColumns = {"title", "artist", "album", "path"};

struct Condition {
    std::string column;
    bool is_part;  // the value may stand anywhere in the field, in any case
    std::string value;
};

std::vector<std::string> ColumnsOf(host::SqlReader& media) {
    std::vector<std::string> columns;
    const auto rows = media.Query("SELECT * FROM music LIMIT 0");
    for (int column = 0; rows != nullptr && column < rows->columns(); ++column)
        columns.emplace_back(rows->Name(column));
    return columns;
}

/// Column names go into the statement's text: only those that there are.
std::optional<Condition> ParseCondition(const std::string& text, const std::vector<std::string>& columns) {
    const size_t sign = text.find_first_of("=~");
    if (sign == std::string::npos) return std::nullopt;
    Condition condition{text.substr(0, sign), text[sign] == '~', text.substr(sign + 1)};
    if (std::find(columns.begin(), columns.end(), condition.column) == columns.end()) return std::nullopt;
    return condition;
}

struct Selection {
    std::vector<Condition> conditions;
    std::string below;
    int64_t limit = 0;
};

constexpr int kFirstValue = 4;  // parameters 1 to 3 are the paths

std::unique_ptr<host::SqlCursor> Select(host::SqlReader& media, const std::string& table,
                                        const std::vector<std::string>& columns, const Selection& selection) {
    std::string text = "SELECT ";
    for (const std::string& column : columns)
        text.append(&column == &columns.front() ? "" : ", ").append(column);
    text += " FROM " + table + " WHERE " +
            (selection.below.empty() ? "1" : "(path = ?1 OR (path >= ?2 AND path < ?3))");
    int parameter = kFirstValue;
    for (const Condition& condition : selection.conditions) {
        const std::string value = "?" + std::to_string(parameter++);
        text +=
            " AND " + (condition.is_part ? "instr(lower(" + condition.column + "), lower(" + value + ")) > 0"
                                         : condition.column + " = " + value);
    }
    text += " ORDER BY path LIMIT " + std::to_string(selection.limit > 0 ? selection.limit : -1);
    auto rows = media.Query(text);
    if (rows == nullptr) return nullptr;
    if (!selection.below.empty()) {
        rows->Text(1, selection.below);
        rows->Text(2, FirstKeyBelow(selection.below));
        rows->Text(3, KeyBehind(selection.below));
    }
    parameter = kFirstValue;
    for (const Condition& condition : selection.conditions)
        rows->Text(parameter++, condition.value);
    return rows;
}

std::string Joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text.append(text.empty() ? "" : ", ").append(word);
    return text;
}

void PrintRows(const std::string& kind, host::SqlCursor& rows, RowPrinter* printer) {
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
    const std::vector<std::string> columns =
        store.media() != nullptr ? ColumnsOf(*store.media()) : kShownColumns;
    Selection selection{{}, options.below.empty() ? "" : DaemonPath(options.below), options.limit};
    for (const std::string& text : options.where) {
        const auto condition = ParseCondition(text, columns);
        if (!condition && store.media() != nullptr) {
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
    for (int type = 0; type < host::kMediaStoreTables && store.media() != nullptr; ++type) {
        const std::string kind = host::kMediaTables[type];
        const bool is_wanted = options.kinds.empty() || std::find(options.kinds.begin(), options.kinds.end(),
                                                                  kind) != options.kinds.end();
        if (!is_wanted) continue;
        if (const auto rows = Select(*store.media(), kind, shown, selection); rows != nullptr)
            PrintRows(kind, *rows, &printer);
    }
    return StoreResult(store, kExitDone);
}

int Problems(const Context& context, const std::string& below) {
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    RowPrinter printer({"time", "reason", "path"}, context.json);
    host::SqlReader* reader = store.ReaderOf("problem");
    const Selection selection{{}, below.empty() ? "" : DaemonPath(below), 0};
    if (reader != nullptr) {
        const auto rows = Select(*reader, "problem", {"time", "reason", "path"}, selection);
        while (rows != nullptr && rows->Next())
            printer.Row({rows->Field(0), rows->Field(1), rows->Field(2)});
    }
    return StoreResult(store, printer.count() > 0 ? kExitDifferences : kExitDone);
}

}  // namespace koli::ctl
