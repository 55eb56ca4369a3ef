#include "platform/host/sql/sql.h"

#include <strings.h>

#include <climits>
#include <new>

namespace koli::host {

SqlRows::SqlRows(SqlStatement& statement) {
    for (; count_ < INT_MAX && statement.Next(); ++count_)
        for (int i = 0; i < statement.columns(); ++i) {
            if (count_ == 0) columns_.emplace_back(statement.Name(i));
            offsets_.push_back(text_.size());
            text_.append(statement.Field(i)).push_back('\0');
        }
}

const char* SqlRows::Field(int row, const char* column) const {
    if (row < 0 || row >= count_ || column == nullptr) return nullptr;
    for (size_t i = 0; i < columns_.size(); ++i)
        if (strcasecmp(columns_[i].c_str(), column) == 0)
            return text_.c_str() + offsets_[static_cast<size_t>(row) * columns_.size() + i];
    return nullptr;
}

SqlStatement* Sql::Kept(std::string_view text) {
    const auto known = kept_.find(text);
    if (known != kept_.end()) return known->second.get();
    std::unique_ptr<SqlStatement> made = Make(text, true);
    return made != nullptr ? kept_.emplace(text, std::move(made)).first->second.get() : nullptr;
}

SqlStatement* Sql::KeptSave(const SaveForm& form) {
    const auto known = saves_.find(&form);
    if (known != saves_.end()) return known->second;
    SqlStatement* const made = Kept(SaveText(form));
    if (made != nullptr) saves_.emplace(&form, made);
    return made;
}

void Sql::DropKept() {
    saves_.clear();
    kept_.clear();
}

int Sql::Execute(std::string_view text) {
    const std::unique_ptr<SqlStatement> statement = Prepare(text);
    return statement != nullptr ? Run(*statement) : -1;
}

std::unique_ptr<SqlRows> Sql::Query(std::string_view text) {
    const std::unique_ptr<SqlStatement> statement = Prepare(text);
    return statement != nullptr ? Query(*statement) : nullptr;
}

std::unique_ptr<SqlRows> Sql::Query(SqlStatement& statement) try {
    auto rows = std::make_unique<SqlRows>(statement);
    if (statement.failed()) rows.reset();
    return rows;
} catch (const std::bad_alloc&) {
    statement.Reset();
    failure_ = {.reason = "the result does not fit into the memory", .passes = true};
    return nullptr;
}

std::vector<std::string> Sql::Columns(std::string_view table) {
    std::vector<std::string> columns;
    SqlStatement* const query = Kept(ColumnsText());
    if (query == nullptr) return columns;
    for (query->Text(1, table); query->Next();)
        columns.emplace_back(query->Field(0));
    return columns;
}

}  // namespace koli::host
