#include "tools/serve/library/library_impl.h"

#include <utility>

namespace koli::serve {
namespace {

thread_local Library::Page* page_at_work = nullptr;

}  // namespace

Library::Page::Page(const Library& library) : library_(library), outer_(std::exchange(page_at_work, this)) {}

Library::Page::~Page() {
    page_at_work = outer_;
}

OpenRows* Library::Page::RowsOf(const ctl::Places& places) {
    if (page_at_work == nullptr || &page_at_work->library_.impl_->places() != &places) return nullptr;
    auto& rows = page_at_work->rows_;
    if (rows == nullptr) rows = std::make_unique<OpenRows>(places);
    return rows.get();
}

PageRows::PageRows(const ctl::Places& places) : open_(Library::Page::RowsOf(places)) {
    if (open_ == nullptr) open_ = &own_.emplace(places);
}

}  // namespace koli::serve
