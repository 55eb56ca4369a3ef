#include "tools/serve/page/notice_pages.h"

#include <exception>

#include "tools/serve/page/layout.h"

namespace koli::serve {
namespace {

const char* HeadingFor(int status) {
    switch (status) {
        case 404:
            return "Not found";
        case 503:
            return "Not now";
        default:
            return PhraseOf(status);
    }
}

const char* AdviceFor(int status) {
    switch (status) {
        case 404:
            return "It may have been moved or removed since the link was made. The search finds what is there now.";
        case 503:
            return "Load the page again in a moment.";
        default:
            return "";
    }
}

}  // namespace

Reply LoginPage(const LoginView& view) {
    Markup main;
    main << "<form class=\"panel login\" method=\"post\" action=\"/login\"><h1>Log in</h1>";
    if (view.why == LoginView::kWrong) main << "<p class=\"bad\" role=\"alert\">That is not the token.</p>";
    if (view.why == LoginView::kTooMany)
        main << "<p class=\"bad\" role=\"alert\">Too many have tried: wait a minute.</p>";
    main
        << "<p class=\"muted\">The token stands in the file that <code>koliindexctl serve</code> has named.</p>"
           "<div><label for=\"token\">Token</label><input id=\"token\" name=\"token\" type=\"password\" "
           "autocomplete=\"current-password\" required autofocus><input name=\"next\" type=\"hidden\"";
    main.Attribute("value", view.next) << "><button class=\"main\">Log in</button></div></form>";
    return PageReply({.title = "Log in", .is_bare = true}, main);
}

Reply ErrorPage(int status, const char* text) try {
    Markup main;
    main << "<h1>";
    main.Text(HeadingFor(status)) << "</h1>" << NoteOf(text, AdviceFor(status));
    Reply reply = PageReply({.title = HeadingFor(status)}, main);
    reply.status = status;
    return reply;
} catch (const std::exception&) {
    return {.status = status, .body = {}};  // no memory is left for more
}

}  // namespace koli::serve
