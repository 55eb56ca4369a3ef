#include "tools/ctl/conditions.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <string_view>

#include "base/text/fold.h"
#include "tools/ctl/media_columns.h"
#include "tools/ctl/output.h"

namespace koli::ctl {
namespace {

struct Operator {
    std::string_view sign;
    const char* sql;  // null: the database knows no such thing
};

/// A longer one before the one that it begins with.
constexpr Operator kOperators[] = {{"!=", "<>"}, {"!~", nullptr}, {"<=", "<="}, {">=", ">="},
                                   {"=", "="},   {"~", nullptr},  {"<", "<"},   {">", ">"}};

const Operator* OperatorAt(std::string_view text) {
    for (const Operator& one : kOperators)
        if (text.starts_with(one.sign)) return &one;
    return nullptr;
}

/// The number as SQL writes it, or "" for a text that is none.
std::string NumberText(std::string_view text) {
    const char* const end = text.data() + text.size();
    int64_t whole = 0;
    if (const auto result = std::from_chars(text.data(), end, whole);
        result.ec == std::errc() && result.ptr == end)
        return std::to_string(whole);
    double number = 0;
    const auto result = std::from_chars(text.data(), end, number);
    if (result.ec != std::errc() || result.ptr != end || !std::isfinite(number)) return "";
    char digits[32];
    snprintf(digits, sizeof digits, "%.17g", number);
    return digits;
}

bool Compares(std::string_view text, std::string_view comparison, std::string_view value) {
    if (comparison == "~") return text.find(value) != std::string_view::npos;
    if (comparison == "!~") return text.find(value) == std::string_view::npos;
    const int order = text.compare(value);
    if (order == 0) return comparison.ends_with('=');
    return (order < 0) == comparison.starts_with('<');
}

}  // namespace

std::string Conditions::Add(const std::string& text) {
    const size_t at = text.find_first_of("=~<>!");
    const Operator* const sign =
        at != std::string::npos ? OperatorAt(std::string_view(text).substr(at)) : nullptr;
    if (sign == nullptr) return text + ": not COLUMN=VALUE or the like (=, ~, <, >, !=, <=, >=, !~)";
    std::string name = text.substr(0, at);
    const bool has_blanks = name.ends_with(' ');
    name.erase(name.find_last_not_of(' ') + 1);
    const MediaColumn* const column = MediaColumnFind(name);
    if (column == nullptr) return MediaColumnUnknown(name);

    std::string_view value = std::string_view(text).substr(at + sign->sign.size());
    if (has_blanks) value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
    if (column->is_number && sign->sql != nullptr) {
        const std::string number = NumberText(value);
        if (number.empty()) return text + ": " + column->name + " is a number, the value is none";
        of_database_.push_back({column->name, sign->sql, number, true});
    } else if (sign->sign == "=" || sign->sign == "!=") {
        of_database_.push_back({column->name, sign->sql, std::string(value)});
    } else {
        judged_.push_back({column->name, std::string(sign->sign), Folded(value)});
    }
    return "";
}

std::vector<std::string> Conditions::Columns() const {
    std::vector<std::string> columns;
    for (const Judged& one : judged_)
        columns.push_back(one.column);
    return columns;
}

bool Conditions::Hold(const host::SqlStatement& row, int first) {
    for (const auto& [column, comparison, value] : judged_) {
        if (row.KindOf(first) == host::SqlStatement::Kind::kReal)
            folded_ = Field::Of(row, first).text;  // as it is printed, whichever database it is
        else
            FoldTo(row.Field(first), &folded_);
        if (!Compares(folded_, comparison, value)) return false;
        ++first;
    }
    return true;
}

}  // namespace koli::ctl
