#include "platform/host/sqlite/table_form.h"

#include <string_view>

namespace koli::host {
namespace {

PageValue::Kind KindOf(std::string_view declared) {
    if (declared == "INTEGER") return PageValue::kInteger;
    return declared == "REAL" ? PageValue::kReal : PageValue::kText;
}

/// A whole number stands for a real one, too.
bool Takes(PageValue::Kind column, PageValue::Kind value) {
    return value == column || (column == PageValue::kReal && value == PageValue::kInteger);
}

std::string InsertText(const TableForm& form) {
    std::string names, values;
    for (const std::string& column : form.columns) {
        names.append(names.empty() ? "" : ", ").append(column);
        values.append(values.empty() ? "?" : ", ?");
    }
    return "INSERT OR IGNORE INTO " + form.name + " (" + names + ") VALUES (" + values + ")";
}

bool ReadColumns(Sql& sql, TableForm* form) {
    // In a clustered row the key comes first.
    const auto rows = sql.Prepare("SELECT name, type, pk FROM pragma_table_info('" + form->name +
                                  "') ORDER BY " + (form->is_clustered ? "pk = 0, pk, cid" : "cid"));
    for (int row = 0; rows != nullptr && rows->Next(); ++row) {
        const PageValue::Kind kind = KindOf(rows->Field(1));
        const bool is_key = rows->Number(2) != 0;
        if (!form->is_clustered && is_key && kind == PageValue::kInteger) form->rowid_column = row;
        form->columns.emplace_back(rows->Field(0));
        form->kinds.push_back(kind);
    }
    form->insert = InsertText(*form);
    return !form->columns.empty();
}

bool LooksLike(const TableForm& a, const TableForm& b) {
    return a.is_clustered == b.is_clustered && a.kinds == b.kinds && a.rowid_column == b.rowid_column;
}

}  // namespace

bool TableForm::IsOnPage(TreePage::Kind kind) const {
    return is_clustered ? kind == TreePage::kKeyLeaf || kind == TreePage::kKeyNode
                        : kind == TreePage::kTableLeaf;
}

bool TableForm::Fits(const PageRecord& record) const {
    if (record.values.size() != columns.size()) return false;
    for (size_t i = 0; i < columns.size(); ++i) {
        const PageValue& value = record.values[i];
        const bool is_rowid = static_cast<int>(i) == rowid_column;
        if (is_rowid ? value.kind != PageValue::kNull : !Takes(kinds[i], value.kind)) return false;
        if (columns[i] == "path" && !value.text.starts_with('/')) return false;
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
    const auto rows = sql.Prepare(
        "SELECT name, wr FROM pragma_table_list WHERE schema = 'main' AND type = 'table' AND name NOT LIKE "
        "'sqlite%' ORDER BY name");
    while (rows != nullptr && rows->Next()) {
        TableForm form{.name = std::string(rows->Field(0)), .is_clustered = rows->Number(1) != 0};
        if (!ReadColumns(sql, &form)) return {};
        for (TableForm& other : forms)
            if (LooksLike(form, other)) form.is_unique = other.is_unique = false;
        forms.push_back(std::move(form));
    }
    return forms;
}

}  // namespace koli::host
