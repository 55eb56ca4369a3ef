#include "tools/koliindexserve/media.h"

#include <exception>

#include "tools/serve/page/address.h"
#include "tools/serve/page/media_types.h"
#include "tools/serve/page/notice_pages.h"

namespace koli::serve {
namespace {

constexpr PictureSide kSides[] = {PictureSide::k160, PictureSide::k320, PictureSide::k640,
                                  PictureSide::k1280};

// Long enough to turn pages back and forth; a file that changes is seen soon.
constexpr char kForMinutes[] = "private, max-age=300";

std::optional<PictureSide> SideOf(const std::string& text) {
    for (const PictureSide side : kSides)
        if (text == std::to_string(static_cast<int32_t>(side))) return side;
    return std::nullopt;
}

/// Of a file that was not opened: databases that cannot be read may list it all the same.
int StatusOf(OpenVerdict verdict, const Library& library) {
    return verdict == OpenVerdict::kNotListed && !library.Error().empty() ? 503 : 404;
}

const char* TextOf(OpenVerdict verdict, int status) {
    if (status == 503) return "The library cannot be read.";
    switch (verdict) {
        case OpenVerdict::kGone:
            return "The library lists this file, but it is no longer there.";
        case OpenVerdict::kNotServed:
            return "This file is not shown: it stands behind a link, or who runs this page may not read it.";
        default:
            return "The library has no such file.";
    }
}

Reply NoPicture(const char* kept) {
    return {.type = "image/gif", .body = EmptyPicture(), .headers = {{"Cache-Control", kept}}};
}

Reply PictureReply(PictureResult result, std::string jpeg) {
    if (result == PictureResult::kMade)
        return {.type = "image/jpeg", .body = std::move(jpeg), .headers = {{"Cache-Control", kForMinutes}}};
    return NoPicture(result == PictureResult::kNoPicture ? kForMinutes : "no-store");
}

}  // namespace

std::optional<MediaAddress> MediaAddressOf(const std::vector<std::string>& segments) {
    if (segments.size() < 2) return std::nullopt;
    if (segments[0] == "file") return MediaAddress{.path = PathOf(segments, 1)};
    if (segments[0] != "small" && segments[0] != "cover") return std::nullopt;
    const auto side = SideOf(segments[1]);
    if (!side || segments.size() < 3) return std::nullopt;
    return MediaAddress{segments[0] == "small" ? MediaAddress::kSmall : MediaAddress::kCover, *side,
                        PathOf(segments, 2)};
}

std::string EmptyPicture() {
    static constexpr char kGif[] =
        "GIF89a\1\0\1\0\x80\0\0\0\0\0\0\0\0!\xF9\4\1\0\0\0\0,\0\0\0\0\1\0\1\0\0\2\2D\1\0;";
    return {kGif, sizeof kGif - 1};
}

std::string PictureName(const MediaAddress& address) {
    return (address.kind == MediaAddress::kSmall ? "small:" : "cover:") + address.path;
}

Reply FileReply(const Library& library, const std::string& path) {
    UniqueFd file;
    const OpenVerdict verdict = library.OpenListed(path, &file);
    const int status = StatusOf(verdict, library);
    if (verdict != OpenVerdict::kOpened) return ErrorPage(status, TextOf(verdict, status));
    const MediaType type = TypeOf(path);
    Reply reply{.type = type.type, .file = std::move(file)};
    if (!type.plays) reply.headers.emplace_back("Content-Disposition", "attachment");
    return reply;
}

void AnswerPicture(const Library& library, Pictures& pictures, const MediaAddress& address,
                   Responder responder) {
    UniqueFd file;
    const OpenVerdict verdict = address.kind == MediaAddress::kSmall ? library.OpenListed(address.path, &file)
                                                                     : library.OpenCover(address.path, &file);
    const int status = StatusOf(verdict, library);
    if (verdict == OpenVerdict::kNotListed)
        return responder.Answer(PlainReply(status, TextOf(verdict, status)));
    if (verdict != OpenVerdict::kOpened) return responder.Answer(NoPicture(kForMinutes));
    const auto kept = std::make_shared<Responder>(std::move(responder));
    pictures.Ask(std::move(file), PictureName(address), address.side,
                 [kept](PictureResult result, std::string jpeg) {
                     try {
                         kept->Answer(PictureReply(result, std::move(jpeg)));
                     } catch (const std::exception&) {
                         // No memory is left: the responder says so when it goes.
                     }
                 });
}

}  // namespace koli::serve
