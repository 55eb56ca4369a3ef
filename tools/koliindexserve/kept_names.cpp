#include "tools/koliindexserve/kept_names.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace koli::serve {
namespace {

constexpr std::string_view kFiles = "/file/", kAssets = "/assets/";
constexpr char kStart[] = "index.html";

bool IsPicture(std::string_view address) {
    return address.starts_with("/small/") || address.starts_with("/cover/");
}

}  // namespace

KeptNames::KeptNames() {
    FileOf("/");
}

std::string KeptNames::Numbered(const char* folder, const char* ending) {
    constexpr size_t kInFolder = 1000;
    char text[64];
    ++number_;
    snprintf(text, sizeof text, "%s/%zu/%zu%s", folder, number_ / kInFolder, number_, ending);
    return text;
}

std::string KeptNames::FileOf(const std::string& address) {
    if (const auto known = files_.find(address); known != files_.end()) return known->second;
    const bool is_picture = IsPicture(address);
    const std::string file = address == "/"                 ? kStart
                             : address.starts_with(kAssets) ? address.substr(1)
                             : is_picture                   ? Numbered("pictures", ".jpg")
                                                            : Numbered("pages", ".html");
    files_.emplace(address, file);
    (is_picture ? pictures_ : pages_).push_back({address, file});
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
    std::deque<Job>& jobs = pages_.empty() ? pictures_ : pages_;
    if (jobs.empty()) return false;
    *job = std::move(jobs.front());
    jobs.pop_front();
    return true;
}

}  // namespace koli::serve
