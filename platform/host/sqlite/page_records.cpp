#include "platform/host/sqlite/page_records.h"

#include <algorithm>
#include <bit>
#include <string_view>

namespace koli::host {
namespace {

constexpr size_t kFileHeader = 100;       // bytes before the header of the first page
constexpr size_t kPayloadMax = 1U << 20;  // no row of these databases is nearly as long
constexpr size_t kColumnsMax = 200;

/// Takes a number of 1 to 9 bytes of 7 bits, the highest first, off the front of `bytes`.
bool TakeNumber(std::string_view* bytes, uint64_t* number) {
    *number = 0;
    for (size_t i = 0; i < bytes->size() && i < 9; ++i) {
        const auto byte = static_cast<uint8_t>((*bytes)[i]);
        *number = i == 8 ? *number << 8 | byte : *number << 7 | (byte & 0x7F);
        if (i < 8 && (byte & 0x80) != 0) continue;
        bytes->remove_prefix(i + 1);
        return true;
    }
    return false;
}

/// The bytes of a whole number or real of each serial type below 12; 10 and 11 are not used.
constexpr size_t kSizes[] = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0};

int64_t SignedNumber(std::string_view bytes) {
    uint64_t number = !bytes.empty() && (bytes[0] & 0x80) != 0 ? UINT64_MAX : 0;
    for (const char byte : bytes)
        number = number << 8 | static_cast<uint8_t>(byte);
    return static_cast<int64_t>(number);
}

bool TakeValue(uint64_t type, std::string_view* body, PageValue* value) {
    if (type == 10 || type == 11) return false;
    const uint64_t wanted = type < 12 ? kSizes[type] : (type - 12) / 2;
    if (wanted > body->size()) return false;
    const auto size = static_cast<size_t>(wanted);
    const std::string_view bytes = body->substr(0, size);
    body->remove_prefix(size);
    if (type >= 12) {
        value->kind = PageValue::kText;
        value->text = bytes;
    } else if (type == 7) {
        value->kind = PageValue::kReal;
        value->real = std::bit_cast<double>(SignedNumber(bytes));
    } else if (type != 0) {
        value->kind = PageValue::kInteger;
        value->integer = type >= 8 ? static_cast<int64_t>(type - 8) : SignedNumber(bytes);
    }
    return true;
}

/// Takes a record apart, which must fill its payload exactly.
bool Parse(std::string_view payload, std::vector<PageValue>* values) {
    std::string_view header = payload;
    uint64_t header_end = 0, type = 0;
    if (!TakeNumber(&header, &header_end) || header_end > payload.size()) return false;
    const auto header_size = static_cast<size_t>(header_end);
    const size_t taken = payload.size() - header.size();
    if (header_size <= taken) return false;
    header = payload.substr(taken, header_size - taken);
    std::string_view body = payload.substr(header_size);
    while (!header.empty()) {
        values->emplace_back();
        if (values->size() > kColumnsMax || !TakeNumber(&header, &type) ||
            !TakeValue(type, &body, &values->back()))
            return false;
    }
    return body.empty();
}

}  // namespace

TreePage::TreePage(const PageFile& file, uint32_t number)
    : file_(file), header_(number == 1 ? kFileHeader : 0) {
    if (!file.Read(number, &page_)) return;
    const uint8_t kind = page_[header_];
    const uint32_t cells = PageNumber16(page_, header_ + 3);
    const bool is_leaf = kind == kKeyLeaf || kind == kTableLeaf;
    if (!is_leaf && kind != kKeyNode && kind != kTableNode) return;
    if (header_ + (is_leaf ? 8 : 12) + size_t{2} * cells > file.usable_size()) return;
    kind_ = static_cast<Kind>(kind);
    cells_ = cells;
}

std::vector<uint32_t> TreePage::Children() const {
    std::vector<uint32_t> children;
    if (kind_ != kKeyNode && kind_ != kTableNode) return children;
    for (uint32_t cell = 0; cell < cells_; ++cell) {
        const size_t at = PageNumber16(page_, header_ + 12 + size_t{2} * cell);
        if (at + 4 <= file_.usable_size()) children.push_back(PageNumber32(page_, at));
    }
    children.push_back(PageNumber32(page_, header_ + 8));
    return children;
}

bool TreePage::Record(uint32_t cell, PageRecord* record) const {
    record->values.clear();
    if (!HasRecords() || cell >= cells_) return false;
    const size_t pointers = header_ + (kind_ == kKeyNode ? 12 : 8);
    const size_t at = PageNumber16(page_, pointers + size_t{2} * cell) + (kind_ == kKeyNode ? size_t{4} : 0);
    if (at < pointers || at >= file_.usable_size()) return false;
    std::string_view bytes(reinterpret_cast<const char*>(page_.data()) + at, file_.usable_size() - at);
    uint64_t size = 0, rowid = 0;
    if (!TakeNumber(&bytes, &size) || size > kPayloadMax) return false;
    if (kind_ == kTableLeaf && !TakeNumber(&bytes, &rowid)) return false;
    record->rowid = static_cast<int64_t>(rowid);
    std::string payload;
    return Payload(file_.usable_size() - bytes.size(), static_cast<size_t>(size), &payload) &&
           Parse(payload, &record->values);
}

/// A long record goes on in a chain of pages; how much of it stands here follows from its size.
bool TreePage::Payload(size_t at, size_t size, std::string* payload) const {
    const size_t usable = file_.usable_size(), minimum = (usable - 12) * 32 / 255 - 23;
    const size_t maximum = kind_ == kTableLeaf ? usable - 35 : (usable - 12) * 64 / 255 - 23;
    size_t here = size;
    if (size > maximum) {
        here = minimum + (size - minimum) % (usable - 4);
        if (here > maximum) here = minimum;
    }
    if (at + here + (here < size ? 4 : 0) > usable) return false;
    payload->assign(reinterpret_cast<const char*>(page_.data()) + at, here);
    if (here == size) return true;
    PageBytes page;
    uint32_t next = PageNumber32(page_, at + here);
    while (payload->size() < size) {
        if (!file_.Read(next, &page)) return false;
        payload->append(reinterpret_cast<const char*>(page.data()) + 4,
                        std::min(size - payload->size(), usable - 4));
        next = PageNumber32(page, 0);
    }
    return next == 0;  // where the chain goes on it is not the one that was written
}

}  // namespace koli::host
