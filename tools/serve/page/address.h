// Addresses of pages and files on this server.  They are permanent: a link that was sent must go on working.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/serve/page/literal.h"

namespace koli::serve {

/// An address that is ready to be sent: all but letters, digits and a few marks stands as %XX in it.
class Address {
  public:
    explicit Address(Literal begin) : text_(begin.text) {}

    /// One segment for a text of any kind, which Unescaped gives back.
    Address& Word(std::string_view word);
    /// The segments of a file's path (with or without '/' before it).
    Address& Path(std::string_view path);
    Address& Number(int64_t number);
    Address& Query(Literal name, std::string_view value);

    const std::string& text() const { return text_; }

  private:
    std::string text_;
    bool has_query_ = false;
};

/// A segment that is no Word, and stands for none: several artists, for one.
inline constexpr char kNoWord[] = "-";

/// What Word was made of; nothing when it was made otherwise.
std::optional<std::string> Unescaped(std::string_view segment);

/// The path of a file: the decoded segments from the one at `first` on; "" when there is none.
std::string PathOf(const std::vector<std::string>& segments, size_t first);

}  // namespace koli::serve
