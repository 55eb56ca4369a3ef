#include "tools/serve/page/media_types.h"

#include <strings.h>

#include <string>

namespace koli::serve {
namespace {

struct NamedType {
    const char* extension;
    MediaType type;
};

constexpr NamedType kTypes[] = {{"mp3", {"audio/mpeg", true}},
                                {"mp1", {"audio/mpeg"}},
                                {"mp2", {"audio/mpeg"}},
                                {"m4a", {"audio/mp4", true}},
                                {"m4b", {"audio/mp4", true}},
                                {"m4p", {"audio/mp4"}},
                                {"aac", {"audio/aac", true}},
                                {"ogg", {"audio/ogg", true}},
                                {"flac", {"audio/flac", true}},
                                {"wav", {"audio/wav", true}},
                                {"aif", {"audio/aiff"}},
                                {"aiff", {"audio/aiff"}},
                                {"wma", {"audio/x-ms-wma"}},
                                {"ac3", {"audio/ac3"}},
                                {"mp4", {"video/mp4", true}},
                                {"m4v", {"video/mp4", true}},
                                {"mov", {"video/quicktime", true}},
                                {"qt", {"video/quicktime", true}},
                                {"3gp", {"video/3gpp", true}},
                                {"3g2", {"video/3gpp2", true}},
                                {"mkv", {"video/x-matroska", true}},
                                {"avi", {"video/x-msvideo"}},
                                {"mpg", {"video/mpeg"}},
                                {"mpeg", {"video/mpeg"}},
                                {"wmv", {"video/x-ms-wmv"}},
                                {"flv", {"video/x-flv"}},
                                {"jpg", {"image/jpeg", true}},
                                {"jpeg", {"image/jpeg", true}},
                                {"jpe", {"image/jpeg", true}},
                                {"png", {"image/png", true}},
                                {"gif", {"image/gif", true}},
                                {"bmp", {"image/bmp", true}},
                                {"ico", {"image/x-icon", true}},
                                {"tif", {"image/tiff"}},
                                {"tiff", {"image/tiff"}}};

}  // namespace

MediaType TypeOf(std::string_view path) {
    const size_t dot = path.rfind('.');
    const std::string extension(dot == std::string_view::npos ? "" : path.substr(dot + 1));
    for (const NamedType& known : kTypes)
        if (strcasecmp(known.extension, extension.c_str()) == 0) return known.type;
    return {"application/octet-stream"};
}

}  // namespace koli::serve
