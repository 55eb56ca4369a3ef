#include "tools/serve/http/exchange.h"

#include <microhttpd.h>

#include <algorithm>

namespace koli::serve {

const std::string* Values::Find(std::string_view name) const {
    const auto found =
        std::find_if(list_.begin(), list_.end(), [name](const auto& one) { return one.first == name; });
    return found == list_.end() ? nullptr : &found->second;
}

const std::string& Values::Value(std::string_view name) const {
    static const std::string none;
    const std::string* const value = Find(name);
    return value == nullptr ? none : *value;
}

size_t Values::Count(std::string_view name) const {
    return static_cast<size_t>(
        std::count_if(list_.begin(), list_.end(), [name](const auto& one) { return one.first == name; }));
}

const char* PhraseOf(int status) {
    const char* const phrase = MHD_get_reason_phrase_for(static_cast<unsigned>(status));
    return phrase == nullptr ? "Error" : phrase;
}

Reply PlainReply(int status, std::string_view text) {
    return {.status = status, .type = "text/plain; charset=utf-8", .body = std::string(text) + "\n"};
}

Reply RedirectReply(const std::string& address) {
    Reply reply = PlainReply(303, address);
    reply.headers.emplace_back("Location", address);
    return reply;
}

std::string LocalAddressOr(const std::string& address) {
    // "//host" and, for browsers, "/\host" are another machine's; a control character may be left out by
    // them.
    const bool is_local = address.starts_with('/') && !address.starts_with("//") &&
                          std::all_of(address.begin(), address.end(),
                                      [](char c) { return c > ' ' && c < '\x7F' && c != '\\'; });
    return is_local ? address : "/";
}

}  // namespace koli::serve
