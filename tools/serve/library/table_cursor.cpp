#include "tools/serve/library/table_cursor.h"

namespace koli::serve {
namespace {

constexpr int64_t kPieceRows = 500;

}  // namespace

void TableCursor::ReadPiece(const std::string& behind) {
    text_.clear();
    offsets_.assign(1, 0);
    row_ = count_ = 0;
    const auto rows = reader_.Behind(table_, columns_, behind, kPieceRows);
    for (; rows != nullptr && rows->Next(); ++count_)
        for (size_t column = 0; column < columns_.size(); ++column) {
            text_ += rows->Field(static_cast<int>(column));
            offsets_.push_back(text_.size());
        }
}

void TableCursor::Next() {
    if (!HasRow()) return;
    if (++row_ < count_) return;
    --row_;
    const std::string last(Key());
    ReadPiece(last);
}

std::string_view TableCursor::Field(size_t column) const {
    if (!HasRow()) return {};
    const size_t field = row_ * columns_.size() + column;
    return std::string_view(text_).substr(offsets_[field], offsets_[field + 1] - offsets_[field]);
}

}  // namespace koli::serve
