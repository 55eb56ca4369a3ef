// The one place where a text becomes a part of a page.
//
// What stands in the program is markup; whatever else comes in is text, and is escaped on its way: there is
// no way to hand a name over as markup.  Names are bytes: what is no UTF-8 shows as U+FFFD, and so do the
// characters that would turn the direction of what stands behind them; other control characters show as their
// pictures.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "tools/serve/page/address.h"
#include "tools/serve/page/literal.h"

namespace koli::serve {

/// How an address is written into a page; null = as it is.
using AddressWriter = std::function<std::string(const Address&)>;

class Markup {
  public:
    /// `writer` must outlive this.
    explicit Markup(const AddressWriter* writer = nullptr) : writer_(writer) {}

    Markup& operator<<(Literal markup) {
        text_ += markup.text;
        return *this;
    }
    Markup& operator<<(const Markup& markup) {
        text_ += markup.text_;
        return *this;
    }
    Markup& operator<<(int64_t number) {
        text_ += std::to_string(number);
        return *this;
    }

    /// Text of this program, or a value.
    Markup& Text(std::string_view text);
    /// Text that somebody has written: its direction is its own.
    Markup& Name(std::string_view name);
    /// ` NAME="VALUE"`
    Markup& Attribute(Literal name, std::string_view value);
    Markup& Attribute(Literal name, int64_t value);
    /// ` NAME="ADDRESS"`
    Markup& Link(Literal name, const Address& address);

    const AddressWriter* writer() const { return writer_; }
    bool empty() const { return text_.empty(); }
    std::string Take() { return std::move(text_); }

  private:
    std::string text_;
    const AddressWriter* writer_;
};

}  // namespace koli::serve
