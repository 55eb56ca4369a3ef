// A request and its reply, as whoever makes pages sees them.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/unique_fd.h"

namespace koli::serve {

/// Named texts in the order in which they came, as bytes: nobody has checked that they are UTF-8.
class Values {
  public:
    void Add(std::string name, std::string value) { list_.emplace_back(std::move(name), std::move(value)); }
    void AppendToLast(std::string_view more) { list_.back().second += more; }
    bool Has(std::string_view name) const { return Find(name) != nullptr; }
    /// The first of that name, "" when there is none.
    const std::string& Value(std::string_view name) const;
    size_t Count(std::string_view name) const;
    const std::vector<std::pair<std::string, std::string>>& list() const { return list_; }

  private:
    const std::string* Find(std::string_view name) const;

    std::vector<std::pair<std::string, std::string>> list_;
};

struct Request {
    std::string method;             // "GET", "HEAD" or "POST"
    std::string address;            // as it was sent: path and query, "/" first
    std::vector<std::string> path;  // decoded segments: none is empty, "." or "..", or holds a '/' or a NUL
    Values parameters;              // of the query, decoded
    Values fields;                  // of a form that was posted, decoded
    Values headers;                 // names in small letters
    Values cookies;
};

/// An answer: `body` from memory, or the open `file`, of which ranges may be asked.
struct Reply {
    int status = 200;
    std::string type = "text/html; charset=utf-8";
    std::string body = {};
    UniqueFd file = {};     // a regular file; goes with status 200 alone
    std::string etag = {};  // with its quotes; a file gets its own
    /// A name that the server sends with each reply (Content-Security-Policy and the like) replaces its
    /// value.
    std::vector<std::pair<std::string, std::string>> headers = {};
};

/// A reply of one line for people.
Reply PlainReply(int status, std::string_view text);

/// A reply that sends the browser on to `address`, which is the server's own (see LocalAddressOr).
Reply RedirectReply(const std::string& address);

/// `address` when it is a path on this server, else "/".
std::string LocalAddressOr(const std::string& address);

/// The standard phrase of a status, "Error" for one that is not known.
const char* PhraseOf(int status);

class Exchange;

/// Answers one request, from any thread, once: what comes later is dropped.  One that goes without an answer
/// has answered 503.  It may outlive the server.
class Responder {
  public:
    explicit Responder(std::shared_ptr<Exchange> exchange) : exchange_(std::move(exchange)) {}
    Responder(Responder&&) = default;
    Responder& operator=(Responder&& other) noexcept {
        std::swap(exchange_, other.exchange_);
        return *this;
    }
    ~Responder();
    void Answer(Reply reply);

  private:
    std::shared_ptr<Exchange> exchange_;
};

/// Called by several threads at once; the request is gone when it returns.
using Handler = std::function<void(const Request&, Responder)>;

}  // namespace koli::serve
