// The replies that are no pages: files, and small pictures of them.
#pragma once

#include <optional>

#include "tools/serve/http/exchange.h"
#include "tools/serve/library/library.h"
#include "tools/serve/picture/pictures.h"

namespace koli::serve {

/// "/file/...", "/small/SIDE/..." or "/cover/SIDE/...".
struct MediaAddress {
    enum Kind { kFile, kSmall, kCover } kind = kFile;
    PictureSide side = PictureSide::k320;
    std::string path = {};
};

/// Nothing when it is no such address.
std::optional<MediaAddress> MediaAddressOf(const std::vector<std::string>& segments);

/// The name by which a small picture is known for good.
std::string PictureName(const MediaAddress& address);

/// A GIF of one pixel that cannot be seen: what stands in place of a small picture that there is none of, so
/// that what the page has under it shows, and no error.
std::string EmptyPicture();

/// The file itself, as a browser may take it.
Reply FileReply(const Library& library, const std::string& path);

/// Answers with a small picture, now or when it is made.
void AnswerPicture(const Library& library, Pictures& pictures, const MediaAddress& address,
                   Responder responder);

}  // namespace koli::serve
