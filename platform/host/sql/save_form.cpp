#include "platform/host/sql/save_form.h"

namespace koli::host {
namespace {

/// What `text` gives for each column from the one at `first` on, between commas.
template <typename Text>
std::string Listed(const SaveForm& form, size_t first, Text text) {
    std::string list;
    const size_t count = form.columns.size() + form.special.size();
    for (size_t i = first; i < count; ++i)
        list.append(i > first ? ", " : "").append(text(i));
    return list;
}

}  // namespace

std::vector<const char*> SaveForm::AllColumns() const {
    std::vector<const char*> all = columns;
    for (const auto& [column, value] : special)
        all.push_back(column);
    return all;
}

std::string SaveForm::ValueOf(size_t index) const {
    return index < columns.size() ? std::string("excluded.") + columns[index]
                                  : special[index - columns.size()].second;
}

std::string SaveParameters(const SaveForm& form) {
    return Listed(form, 0, [](size_t i) { return "?" + std::to_string(i + 1); });
}

std::string SaveDifference(const SaveForm& form) {
    const std::vector<const char*> all = form.AllColumns();
    return "(" + Listed(form, 1, [&](size_t i) { return form.table + "." + all[i]; }) +
           ") IS DISTINCT FROM (" + Listed(form, 1, [&](size_t i) { return form.ValueOf(i); }) + ")";
}

std::string UpsertText(const SaveForm& form, const std::string& row) {
    const std::vector<const char*> all = form.AllColumns();
    return "INSERT INTO " + form.table + " (" + Listed(form, 0, [&](size_t i) { return all[i]; }) + ") " +
           row + " ON CONFLICT (" + all[0] + ") DO UPDATE SET " +
           Listed(form, 1, [&](size_t i) { return all[i] + (" = " + form.ValueOf(i)); }) + " WHERE " +
           SaveDifference(form);
}

}  // namespace koli::host
