#include "tools/serve/http/response.h"

#include <sys/stat.h>
#include <unistd.h>

#include <ctime>

#include "tools/serve/http/byte_range.h"

namespace koli::serve {
namespace {

// Nothing from elsewhere, nothing inline, in nobody's frame.  A reply's own policy replaces it.
constexpr std::pair<const char*, const char*> kHeaders[] = {
    {"Content-Security-Policy",
     "default-src 'none'; style-src 'self'; script-src 'self'; img-src 'self'; media-src 'self'; connect-src 'self'; "
     "form-action 'self'; base-uri 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    // Not "no-referrer": a browser would send a form with the origin "null".
    {"Referrer-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cache-Control", "no-cache"}};
// A file is anybody's, whatever it is called: opened by itself it may show itself and run nothing.
constexpr char kFilePolicy[] =
    "sandbox; default-src 'none'; img-src 'self'; media-src 'self'; style-src 'unsafe-inline'; frame-ancestors 'none'";

bool IsListed(std::string_view list, const std::string& etag) {
    return list == "*" || list.find(etag) != std::string_view::npos;
}

bool IsUnchanged(const Request& request, const std::string& etag, const std::string& modified) {
    if (request.headers.Has("if-none-match"))
        return !etag.empty() && IsListed(request.headers.Value("if-none-match"), etag);
    return !modified.empty() && request.headers.Value("if-modified-since") == modified;
}

constexpr size_t kBlock = 32768;  // bytes of a file that are held for a client

std::string HttpDate(time_t time) {
    char text[64];
    tm parts;
    if (gmtime_r(&time, &parts) == nullptr) return "";
    static constexpr const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    snprintf(text, sizeof text, "%s, %02d %s %04d %02d:%02d:%02d GMT", kDays[parts.tm_wday], parts.tm_mday,
             kMonths[parts.tm_mon], parts.tm_year + 1900, parts.tm_hour, parts.tm_min, parts.tm_sec);
    return text;
}

/// Strong: what has the same is the same to the last byte, as far as a file system tells.
std::string EtagOf(const struct stat& status) {
    char text[96];
    snprintf(text, sizeof text, "\"%llx-%llx-%llx.%lx\"", static_cast<unsigned long long>(status.st_ino),
             static_cast<unsigned long long>(status.st_size),
             static_cast<unsigned long long>(status.st_mtim.tv_sec),
             static_cast<unsigned long>(status.st_mtim.tv_nsec));
    return text;
}

/// Adds headers to what is sent; once one is refused, all is.
class Headers {
  public:
    explicit Headers(MHD_Response* response) : response_(response) {}
    void Add(const char* name, const std::string& value) {
        if (response_ != nullptr && !value.empty())
            is_good_ = MHD_add_response_header(response_, name, value.c_str()) == MHD_YES && is_good_;
    }
    bool is_good() const { return is_good_ && response_ != nullptr; }

  private:
    MHD_Response* const response_;
    bool is_good_ = true;
};

Response TextResponse(std::string text) {
    auto* const kept = new std::string(std::move(text));
    Response response(MHD_create_response_from_buffer_with_free_callback_cls(
        kept->size(), kept->data(), [](void* given) { delete static_cast<std::string*>(given); }, kept));
    if (!response) delete kept;
    return response;
}

/// The range of a file of `size` bytes that is to be sent.
ByteRange RangeFor(const Request& request, int64_t size, const std::string& etag,
                   const std::string& modified) {
    const std::string& condition = request.headers.Value("if-range");
    const bool may_be_part = request.method == "GET" && request.headers.Count("range") == 1 &&
                             (condition.empty() || condition == etag || condition == modified);
    const ByteRange range = may_be_part ? RangeOf(request.headers.Value("range"), size) : ByteRange{};
    return range.kind == ByteRange::kWhole ? ByteRange{ByteRange::kWhole, 0, size} : range;
}

/// A part of an open file.
struct Slice {
    UniqueFd file;
    int64_t first;
};

/// Not the library's own way to send a descriptor: that waits when a file has become shorter than was
/// promised.
ssize_t ReadSlice(void* from, uint64_t position, char* bytes, size_t size) noexcept {
    const auto* const slice = static_cast<const Slice*>(from);
    const ssize_t length =
        pread(slice->file.get(), bytes, size, slice->first + static_cast<int64_t>(position));
    return length > 0 ? length : MHD_CONTENT_READER_END_WITH_ERROR;
}

Response PartOf(UniqueFd file, const ByteRange& range) {
    if (range.length == 0) return TextResponse("");
    auto slice = std::make_unique<Slice>(Slice{std::move(file), range.first});
    Response response(
        MHD_create_response_from_callback(static_cast<uint64_t>(range.length), kBlock, ReadSlice, slice.get(),
                                          [](void* sent) { delete static_cast<Slice*>(sent); }));
    if (response) static_cast<void>(slice.release());  // the response owns it
    return response;
}

/// Adds to the reply what tells of its file.
Response FileResponse(const Request& request, Reply& reply, int* status) {
    struct stat file;
    if (fstat(reply.file.get(), &file) != 0 || !S_ISREG(file.st_mode)) {
        *status = MHD_HTTP_NOT_FOUND;
        return TextResponse("");
    }
    const std::string modified = HttpDate(file.st_mtim.tv_sec), size = std::to_string(file.st_size);
    reply.etag = EtagOf(file);
    reply.headers.emplace_back("Accept-Ranges", "bytes");
    reply.headers.emplace_back("Last-Modified", modified);
    if (IsUnchanged(request, reply.etag, modified)) {
        *status = MHD_HTTP_NOT_MODIFIED;  // goes without the bytes, but with their length
        return PartOf(std::move(reply.file), {ByteRange::kWhole, 0, file.st_size});
    }
    const ByteRange range = RangeFor(request, file.st_size, reply.etag, modified);
    if (range.kind == ByteRange::kNone) {
        *status = MHD_HTTP_RANGE_NOT_SATISFIABLE;
        reply.headers.emplace_back("Content-Range", "bytes */" + size);
        return TextResponse("");
    }
    if (range.kind == ByteRange::kPart) {
        *status = MHD_HTTP_PARTIAL_CONTENT;
        reply.headers.emplace_back("Content-Range", "bytes " + std::to_string(range.first) + "-" +
                                                        std::to_string(range.first + range.length - 1) + "/" +
                                                        size);
    }
    return PartOf(std::move(reply.file), range);
}

}  // namespace

Response ResponseOf(const Request& request, Reply reply, int* status) {
    *status = reply.status;
    const bool is_file = reply.file.valid();
    if (!is_file && reply.status == MHD_HTTP_OK && !reply.etag.empty() &&
        IsUnchanged(request, reply.etag, ""))
        *status = MHD_HTTP_NOT_MODIFIED;
    Response response = is_file ? FileResponse(request, reply, status) : TextResponse(std::move(reply.body));
    Headers headers(response.get());
    headers.Add("Content-Type", reply.type);
    headers.Add("ETag", reply.etag);
    for (const auto& [name, value] : reply.headers)
        headers.Add(name.c_str(), value);
    for (const auto& [name, value] : kHeaders)
        if (response && MHD_get_response_header(response.get(), name) == nullptr)
            headers.Add(name,
                        is_file && name == std::string_view("Content-Security-Policy") ? kFilePolicy : value);
    return headers.is_good() ? std::move(response) : nullptr;
}

}  // namespace koli::serve
