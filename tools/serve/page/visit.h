// One look at a page: the library, and what was asked for.
#pragma once

#include <optional>
#include <string>

#include "tools/serve/http/exchange.h"
#include "tools/serve/library/library.h"
#include "tools/serve/page/layout.h"
#include "tools/serve/page/markup.h"

namespace koli::serve {

struct Visit {
    const Library& library;
    const Request& request;
    const AddressWriter* writer = nullptr;  // null = the server's addresses
    bool is_kept = false;                   // the page becomes a file: nothing in it takes a server

    Markup NewMarkup() const { return Markup(writer); }
    /// The piece that is asked for by "from".
    Span Piece(size_t count) const;
    const std::string& Value(Literal name) const { return request.parameters.Value(name.text); }
    /// The word in the segment at `place`, as Address::Word has written it.
    std::optional<std::string> WordAt(size_t place) const;
    PageHead Head(std::string title, Area area, const char* tab = nullptr) const;
};

/// "from 61 on" for a piece of a list, as a part of a title; "" for its beginning.
std::string FromText(Span span);

/// Why there is nothing to see: the databases have none of these.  Empty when they cannot be read, as the
/// page's head tells.
Markup NothingNote(const Visit& visit, std::string_view sentence, std::string_view advice);

/// The same for a part of the library that is empty: `advice` is for a daemon that has nothing to do.
Markup EmptyNote(const Visit& visit, std::string_view sentence, std::string_view advice);

/// The page for what the library does not have.
Reply MissingPage(const Visit& visit);

}  // namespace koli::serve
