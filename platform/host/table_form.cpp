#include "platform/host/table_form.h"

#include <cstring>

namespace koli::host {
namespace {

PageValue::Kind KindOf(const char* declared) {
    if (strcasecmp(declared, "INTEGER") == 0) return PageValue::kInteger;
    return strcasecmp(declared, "REAL") == 0 ? PageValue::kReal : PageValue::kText;
}

/// A whole number stands for a real one, too.
bool Takes(PageValue::Kind column, PageValue::Kind value) {
    return value == column || (column == PageValue::kReal && value == PageValue::kInteger);
}

bool ReadColumns(Sql& sql, TableForm* form) {
    // In a clustered row the key comes first.
    const auto rows = sql.Query("SELECT name, type, pk FROM pragma_table_info('" + form->name +
                                "') ORDER BY " + (form->is_clustered ? "pk = 0, pk, cid" : "cid"));
    if (rows == nullptr) return false;
    for (int row = 0; row < rows->count(); ++row) {
        const PageValue::Kind kind = KindOf(rows->Field(row, "type"));
        const bool is_key = strcmp(rows->Field(row, "pk"), "0") != 0;
        if (!form->is_clustered && is_key && kind == PageValue::kInteger) form->rowid_column = row;
        form->columns.emplace_back(rows->Field(row, "name"));
        form->kinds.push_back(kind);
    }
    return !form->columns.empty();
}

bool LooksLike(const TableForm& a, const TableForm& b) {
    return a.is_clustered == b.is_clustered && a.kinds == b.kinds && a.rowid_column == b.rowid_column;
}

}  // namespace

std::string TableForm::InsertText() const {
    std::string names, values;
    for (const std::string& column : columns) {
        names.append(names.empty() ? "" : ", ").append(column);
        values.append(values.empty() ? "?" : ", ?");
    }
    return "INSERT OR IGNORE INTO " + name + " (" + names + ") VALUES (" + values + ")";
}

bool TableForm::IsOnPage(TreePage::Kind kind) const {
    return is_clustered ? kind == TreePage::kKeyLeaf || kind == TreePage::kKeyNode
                        : kind == TreePage::kTableLeaf;
}

bool TableForm::Fits(const PageRecord& record) const {
    if (record.values.size() != columns.size()) return false;
    for (size_t i = 0; i < columns.size(); ++i) {
        const PageValue& value = record.values[i];
        if (static_cast<int>(i) == rowid_column) {
            if (value.kind != PageValue::kNull) return false;
        } else if (!Takes(kinds[i], value.kind)) {
            return false;
        } else if (columns[i] == "path" && value.text.substr(0, 1) != "/") {
            return false;
        }
    }
    return true;
}

void TableForm::Complete(PageRecord* record) const {
    record->values.resize(columns.size());
    for (size_t i = 0; i < columns.size(); ++i) {
        PageValue& value = record->values[i];
        if (static_cast<int>(i) == rowid_column) {
            value.kind = PageValue::kInteger;
            value.integer = record->rowid;
        } else if (value.kind == PageValue::kNull) {
            value.kind = kinds[i];
        }
    }
}

std::vector<TableForm> TableForms(Sql& sql) {
    std::vector<TableForm> forms;
    const auto rows = sql.Query(
        "SELECT name, wr FROM pragma_table_list WHERE schema = 'main' AND type = 'table' AND name NOT LIKE "
        "'sqlite%' ORDER BY name");
    for (int row = 0; rows != nullptr && row < rows->count(); ++row) {
        TableForm form{.name = rows->Field(row, "name"),
                       .is_clustered = strcmp(rows->Field(row, "wr"), "0") != 0};
        if (!ReadColumns(sql, &form)) return {};
        for (TableForm& other : forms)
            if (LooksLike(form, other)) form.is_unique = other.is_unique = false;
        forms.push_back(std::move(form));
    }
    return forms;
}

}  // namespace koli::host
