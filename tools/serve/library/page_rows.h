// The databases for a page: opened once for all questions of it.
#pragma once

#include <memory>
#include <optional>

#include "tools/serve/library/library.h"
#include "tools/serve/library/row_reader.h"

namespace koli::serve {

/// Both databases, open to read rows, or not.
class OpenRows {
  public:
    explicit OpenRows(const ctl::Places& places) : is_open_(store_.Open(places)), rows_(store_) {
        if (is_open_) store_.SaveMemory();
    }
    bool is_open() const { return is_open_; }
    const ctl::StoreReader& store() const { return store_; }
    RowReader& rows() { return rows_; }

  private:
    ctl::StoreReader store_;
    const bool is_open_;
    RowReader rows_;
};

/// The databases for one question: those of the page that this thread makes (Library::Page), else its own.
class PageRows {
  public:
    explicit PageRows(const ctl::Places& places);
    bool is_open() const { return open_->is_open(); }
    const ctl::StoreReader& store() const { return open_->store(); }
    RowReader* operator->() { return &open_->rows(); }
    RowReader& operator*() { return open_->rows(); }

  private:
    std::optional<OpenRows> own_;
    OpenRows* open_;
};

}  // namespace koli::serve
