#include "tools/serve/http/request_reader.h"

#include <algorithm>
#include <new>

#include "tools/serve/http/small_letters.h"
#include "tools/serve/http/target.h"

namespace koli::serve {
namespace {

constexpr size_t kHeadMax = 8192;   // bytes of request line and headers
constexpr size_t kHeadersMax = 64;  // of one request
constexpr size_t kValuesMax = 32;   // in a query
constexpr size_t kBodyMax = 4096;   // bytes of a form

std::string TextOf(const char* text, size_t size) {
    return text == nullptr ? "" : std::string(text, size);
}

struct Reading {
    Values values;
    bool is_whole = true;
};

MHD_Result AddValue(void* to, MHD_ValueKind kind, const char* key, size_t key_size, const char* value,
                    size_t value_size) noexcept {
    auto* const reading = static_cast<Reading*>(to);
    try {
        std::string name = TextOf(key, key_size);
        reading->values.Add(kind == MHD_HEADER_KIND ? SmallLetters(std::move(name)) : std::move(name),
                            TextOf(value, value_size));
        return MHD_YES;
    } catch (...) {  // through the library it would be lost
        reading->is_whole = false;
        return MHD_NO;
    }
}

Values ValuesOf(MHD_Connection* connection, MHD_ValueKind kind) {
    Reading reading;
    MHD_get_connection_values_n(connection, kind, AddValue, &reading);
    if (!reading.is_whole) throw std::bad_alloc();
    return std::move(reading.values);
}

bool DecodeQuery(MHD_Connection* connection, Values* decoded) {
    const Values values = ValuesOf(connection, MHD_GET_ARGUMENT_KIND);
    if (values.list().size() > kValuesMax) return false;
    for (const auto& [name, value] : values.list()) {
        auto plain_name = PercentDecoded(name), plain_value = PercentDecoded(value);
        if (!plain_name || !plain_value) return false;
        decoded->Add(std::move(*plain_name), std::move(*plain_value));
    }
    return true;
}

/// A body must say its length once, in digits, and only a posted form has one: where a request ends is never
/// in doubt.
int BodyRefusal(const Request& request) {
    if (request.headers.Has("transfer-encoding")) return MHD_HTTP_LENGTH_REQUIRED;
    const std::string& length = request.headers.Value("content-length");
    const size_t lengths = request.headers.Count("content-length");
    const bool is_number = !length.empty() && length.find_first_not_of("0123456789") == std::string::npos;
    if (lengths > 1 || (lengths == 1 && !is_number)) return MHD_HTTP_BAD_REQUEST;
    const bool is_empty = length.find_first_not_of('0') == std::string::npos;
    if (request.method != "POST") return is_empty ? 0 : MHD_HTTP_CONTENT_TOO_LARGE;
    if (lengths == 0) return MHD_HTTP_LENGTH_REQUIRED;
    if (length.size() > 9 || std::stoul(length) > kBodyMax) return MHD_HTTP_CONTENT_TOO_LARGE;
    const std::string type = SmallLetters(request.headers.Value("content-type"));
    return is_empty || type.starts_with("application/x-www-form-urlencoded")
               ? 0
               : MHD_HTTP_UNSUPPORTED_MEDIA_TYPE;
}

/// A name with a blank before its colon, say, is another header to whoever cuts it off; a carriage return in
/// a value is its end to some.
bool IsSound(const std::string& name, const std::string& value) {
    const auto is_token = [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
               std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
    };
    const auto is_control = [](char c) { return (c >= '\0' && c < ' ' && c != '\t') || c == '\x7F'; };
    return !name.empty() && std::all_of(name.begin(), name.end(), is_token) &&
           std::none_of(value.begin(), value.end(), is_control);
}

bool AreSound(const Values& headers) {
    return std::all_of(headers.list().begin(), headers.list().end(),
                       [](const auto& header) { return IsSound(header.first, header.second); });
}

/// Bytes of the head: the library counts to where it believes that it ends.
size_t HeadSize(MHD_Connection* connection) {
    const auto* const head = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_REQUEST_HEADER_SIZE);
    return head == nullptr ? SIZE_MAX : head->header_size;
}

/// Only the login is posted.
bool IsPosted(const Request& request) {
    return request.path.size() == 1 && (request.path.front() == "login" || request.path.front() == "logout");
}

int MethodRefusal(const Request& request) {
    if (request.method == "GET" || request.method == "HEAD") return 0;
    return request.method == "POST" && IsPosted(request) ? 0 : MHD_HTTP_METHOD_NOT_ALLOWED;
}

}  // namespace

const char* MethodsOf(const Request& request) {
    return IsPosted(request) ? "GET, HEAD, POST" : "GET, HEAD";
}

bool IsPlainHead(MHD_Connection* connection, const Request& request) {
    constexpr size_t kLineMarks = 4;                                    // ": " and the line's end
    size_t size = request.method.size() + request.address.size() + 14;  // " ", " HTTP/1.1" and two ends
    for (const auto& [name, value] : request.headers.list())
        size += name.size() + value.size() + kLineMarks;
    return HeadSize(connection) == size;
}

int ReadRequest(MHD_Connection* connection, const char* path, const char* method, const char* version,
                Request* request) {
    request->method = method;
    request->headers = ValuesOf(connection, MHD_HEADER_KIND);
    request->cookies = ValuesOf(connection, MHD_COOKIE_KIND);
    if (request->address.size() > kHeadMax) return MHD_HTTP_URI_TOO_LONG;
    if (HeadSize(connection) > kHeadMax || request->headers.list().size() > kHeadersMax)
        return MHD_HTTP_REQUEST_HEADER_FIELDS_TOO_LARGE;
    if (!AreSound(request->headers)) return MHD_HTTP_BAD_REQUEST;
    const std::string_view protocol = version;
    if (protocol != MHD_HTTP_VERSION_1_1 && protocol != MHD_HTTP_VERSION_1_0)
        return MHD_HTTP_HTTP_VERSION_NOT_SUPPORTED;
    auto segments = SegmentsOf(path);
    if (segments) request->path = std::move(*segments);
    if (const int refusal = MethodRefusal(*request)) return refusal;
    if (const int refusal = BodyRefusal(*request)) return refusal;
    return segments && DecodeQuery(connection, &request->parameters) ? 0 : MHD_HTTP_BAD_REQUEST;
}

}  // namespace koli::serve
