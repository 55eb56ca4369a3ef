// What all pages have around them: head, navigation, search, foot.
#pragma once

#include <initializer_list>
#include <string>

#include "tools/serve/http/exchange.h"
#include "tools/serve/page/markup.h"

namespace koli::serve {

/// The part of the library that a page belongs to, as the navigation has it.
enum class Area { kNone, kMusic, kFilms, kPhotos, kPlaylists, kProblems, kStatus };

struct PageHead {
    std::string title;  // of the window; "" = the library's own
    Area area = Area::kNone;
    std::string searched = {};  // what stands in the field of the search
    std::string trouble = {};   // what keeps it from being whole; "" = nothing
    const char* tab = nullptr;  // the one of its area's tabs that it belongs to
    bool is_bare = false;       // without navigation: who sees it is not in yet
    bool is_kept = false;       // a file that is kept: nothing that takes a server
};

/// The parts of a window's title, the most particular one first; "" is left out.
std::string TitleOf(std::initializer_list<std::string> parts);

/// A whole page.
Reply PageReply(const PageHead& head, const Markup& main);

/// A note in place of what is not there: a sentence, and what to do.
Markup NoteOf(std::string_view sentence, std::string_view advice);

}  // namespace koli::serve
