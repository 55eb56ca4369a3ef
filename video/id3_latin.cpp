#include "video/id3_latin.h"

#include <algorithm>
#include <cstring>

#include "platform/koliindex.h"

namespace koli {
namespace {

constexpr int kTagMost = 1 << 20;  // bytes that are looked through; a picture may stand before the texts
constexpr int kChunksMost = 64;    // of a RIFF file
constexpr int64_t kRiffHeader = 12;

/// '' for a text that has no character beyond ASCII, or one beyond Latin-1.
std::string Latin1Of(const char* utf8) {
    std::string bytes;
    bool is_ascii = true;
    for (; *utf8 != '\0'; ++utf8) {
        const auto byte = static_cast<unsigned char>(*utf8);
        if (byte < 0x80) {
            bytes.push_back(*utf8);
            continue;
        }
        const auto next = static_cast<unsigned char>(utf8[1]);
        if ((byte & 0xFE) != 0xC2 || (next & 0xC0) != 0x80) return "";
        bytes.push_back(static_cast<char>((byte & 3U) << 6 | (next & 0x3FU)));
        ++utf8;
        is_ascii = false;
    }
    return is_ascii ? "" : bytes;
}

/// Where the tag begins: at the file's start, or in a chunk of a RIFF file.  Negative when there is none.
int64_t TagOf(AVIOContext* file) {
    char name[4] = {};
    avio_seek(file, 0, SEEK_SET);
    avio_read(file, reinterpret_cast<unsigned char*>(name), sizeof name);
    if (memcmp(name, "ID3", 3) == 0) return 0;
    if (memcmp(name, "RIFF", 4) != 0) return -1;
    int64_t at = kRiffHeader;
    for (int i = 0; i < kChunksMost && avio_seek(file, at, SEEK_SET) == at; ++i) {
        if (avio_read(file, reinterpret_cast<unsigned char*>(name), sizeof name) != sizeof name) break;
        const int64_t length = avio_rl32(file);
        if (memcmp(name, "id3 ", 4) == 0 || memcmp(name, "ID3 ", 4) == 0) return avio_tell(file);
        at += 8 + length + length % 2;
    }
    return -1;
}

/// Whether a whole text of the encoding 0 is these bytes: a zero, the end, or another frame's name is behind
/// it.
bool HasText(const std::string& tag, const std::string& bytes) {
    const std::string text = '\0' + bytes;
    for (size_t at = 0; (at = tag.find(text, at)) != std::string::npos; ++at) {
        const size_t end = at + text.size();
        if (end == tag.size() || tag[end] == '\0' || (tag[end] >= '0' && tag[end] <= 'Z')) return true;
    }
    return false;
}

}  // namespace

/// Of the file behind the tag no harm is done: what is looked for is a text that the library has found.
void Id3Latin::Read() {
    is_read_ = true;
    const int64_t at = TagOf(input_->pb);
    if (at < 0 || avio_seek(input_->pb, at, SEEK_SET) != at) return;
    tag_.resize(kTagMost);
    const int got = avio_read(input_->pb, reinterpret_cast<unsigned char*>(tag_.data()), kTagMost);
    tag_.resize(static_cast<size_t>(std::max(got, 0)));
}

std::string Id3Latin::BytesOf(const char* text) {
    if (BlKOLITagCharsetIsSet() == 0) return text;
    const std::string bytes = Latin1Of(text);
    if (bytes.empty()) return text;
    if (!is_read_) Read();
    return HasText(tag_, bytes) ? bytes : text;
}

}  // namespace koli
