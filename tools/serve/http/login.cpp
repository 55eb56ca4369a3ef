#include "tools/serve/http/login.h"

#include <algorithm>

#include "tools/serve/http/secret_file.h"

namespace koli::serve {
namespace {

constexpr size_t kSessionsMax = 64;
constexpr size_t kFailuresMax = 10;  // in a minute, of all who try
constexpr char kAge[] = "31536000";  // seconds that a browser keeps its cookie

bool IsAt(const Request& request, const char* page) {
    return request.path.size() == 1 && request.path.front() == page;
}

}  // namespace

Login::Login(std::string token, std::string sessions_file, std::string cookie, Page page)
    : token_(std::move(token)),
      sessions_file_(std::move(sessions_file)),
      cookie_(std::move(cookie)),
      page_(std::move(page)) {
    std::string ignored;
    auto lines = SecretLines(sessions_file_, &ignored);
    if (lines && lines->size() <= kSessionsMax) sessions_ = std::move(*lines);
    std::erase(sessions_, "");
}

std::optional<Reply> Login::Answer(const Request& request, Clock::time_point now) {
    if (token_.empty()) {
        if (IsAt(request, "login") || IsAt(request, "logout")) return RedirectReply("/");
        return std::nullopt;
    }
    const std::lock_guard lock(mutex_);
    if (IsAt(request, "logout") && request.method == "POST") return Leave(request);
    if (IsAt(request, "login")) {
        if (request.method == "POST") return Enter(request, now);
        return Ask(200, {LoginView::kAsked, request.parameters.Value("next")});
    }
    if (IsIn(request) || (!request.path.empty() && request.path.front() == "assets")) return std::nullopt;
    return Ask(401, {LoginView::kAsked, request.address});
}

bool Login::IsIn(const Request& request) const {
    bool is_in = false;
    for (const auto& [name, value] : request.cookies.list())
        if (name == cookie_)
            for (const std::string& secret : sessions_)
                is_in |= IsSameSecret(value, secret);
    return is_in;
}

Reply Login::Enter(const Request& request, Clock::time_point now) {
    const std::string& next = request.fields.Value("next");
    while (!failures_.empty() && now - failures_.front() >= std::chrono::minutes(1))
        failures_.pop_front();
    if (failures_.size() >= kFailuresMax) return Ask(429, {LoginView::kTooMany, next});
    if (!IsSameSecret(request.fields.Value("token"), token_)) {
        failures_.push_back(now);
        return Ask(401, {LoginView::kWrong, next});
    }
    const std::string secret = NewSecret();
    if (secret.empty()) return PlainReply(503, "There is no random number.");
    if (sessions_.size() >= kSessionsMax) sessions_.erase(sessions_.begin());
    sessions_.push_back(secret);
    Save();
    Reply reply = RedirectReply(LocalAddressOr(next));
    reply.headers.emplace_back("Set-Cookie", Cookie(secret, kAge));
    return reply;
}

Reply Login::Leave(const Request& request) {
    size_t ended = 0;
    for (const auto& [name, value] : request.cookies.list())
        if (name == cookie_) ended += std::erase(sessions_, value);
    if (ended > 0) Save();  // anybody may leave, but not wear out a disk
    Reply reply = RedirectReply("/");
    reply.headers.emplace_back("Set-Cookie", Cookie("", "0"));
    return reply;
}

Reply Login::Ask(int status, LoginView view) const {
    view.next = LocalAddressOr(view.next);
    Reply reply = page_(view);
    reply.status = status;
    reply.headers.emplace_back("Cache-Control", "no-store");
    if (status == 429) reply.headers.emplace_back("Retry-After", "60");
    return reply;
}

/// Lax, not Strict: a link in a letter is followed by those who are logged in.  It changes nothing, and
/// nothing but the top of a window gets the cookie that way.
std::string Login::Cookie(const std::string& secret, const char* age) const {
    return cookie_ + "=" + secret + "; Path=/; Max-Age=" + age + "; HttpOnly; SameSite=Lax";
}

/// Where it cannot be written, the next restart asks for the token again.
void Login::Save() const {
    std::string ignored;
    SaveSecretLines(sessions_file_, sessions_, &ignored);
}

}  // namespace koli::serve
