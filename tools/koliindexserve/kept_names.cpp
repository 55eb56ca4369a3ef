#include "tools/koliindexserve/kept_names.h"

#include <algorithm>
#include <cstdio>
#include <functional>
#include <string_view>

namespace koli::serve {
namespace {

constexpr std::string_view kFiles = "/file/", kAssets = "/assets/";
constexpr char kStart[] = "index.html";

bool IsPicture(std::string_view address) {
    return address.starts_with("/small/") || address.starts_with("/cover/");
}

std::string Numbered(const char* folder, uint32_t number, const char* ending) {
    constexpr uint32_t kInFolder = 1000;
    char text[64];
    snprintf(text, sizeof text, "%s/%u/%u%s", folder, number / kInFolder, number, ending);
    return text;
}

std::string FileNamed(const std::string& address, uint32_t number) {
    if (address == "/") return kStart;
    if (address.starts_with(kAssets)) return address.substr(1);
    return IsPicture(address) ? Numbered("pictures", number, ".jpg") : Numbered("pages", number, ".html");
}

}  // namespace

KeptNames::KeptNames() {
    FileOf("/");
}

std::string KeptNames::FileOf(const std::string& address) {
    const std::hash<std::string> hash;
    const auto [known, is_new] =
        numbers_.try_emplace({hash(address), hash(address + "\n")}, static_cast<uint32_t>(numbers_.size()));
    std::string file = FileNamed(address, known->second);
    if (is_new) jobs_.push_back({address, file});
    return file;
}

AddressWriter KeptNames::WriterFor(const std::string& from) {
    std::string up;
    for (auto depth = std::count(from.begin(), from.end(), '/'); depth > 0; --depth)
        up += "../";
    return [this, up](const Address& address) {
        const std::string& text = address.text();
        if (text.starts_with(kFiles)) return "file://" + text.substr(kFiles.size() - 1);
        return up + FileOf(text);
    };
}

bool KeptNames::Next(Job* job) {
    if (jobs_.empty()) return false;
    *job = std::move(jobs_.back());
    jobs_.pop_back();
    return true;
}

}  // namespace koli::serve
