#include "tools/koliindexserve/kept_site.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <deque>
#include <filesystem>
#include <future>

#include "tools/koliindexserve/kept_names.h"
#include "tools/koliindexserve/media.h"
#include "tools/serve/http/target.h"
#include "tools/serve/page/site.h"

namespace koli::serve {
namespace {

constexpr size_t kAtOnce = 16;  // small pictures that are being made

/// The request for an address that a page names.
Request RequestFor(const std::string& address) {
    Request request;
    request.method = "GET";
    request.address = address;
    const size_t query = address.find('?');
    request.path =
        SegmentsOf(std::string_view(address).substr(0, query)).value_or(std::vector<std::string>{});
    for (size_t at = query; at != std::string::npos;) {
        const size_t begin = at + 1, equals = address.find('=', begin);
        at = address.find('&', begin);
        if (equals == std::string::npos) break;
        const size_t length = at == std::string::npos ? at : at - equals - 1;
        request.parameters.Add(address.substr(begin, equals - begin),
                               PercentDecoded(address.substr(equals + 1, length)).value_or(""));
    }
    return request;
}

/// Writes the files below a folder that nobody else knows yet.
class KeptSite {
  public:
    KeptSite(const Library& library, Pictures& pictures, std::string folder)
        : library_(library), pictures_(pictures), folder_(std::move(folder)) {}

    bool Write(std::string* error) {
        KeptNames::Job job;
        while (names_.Next(&job)) {
            const auto picture = MediaAddressOf(RequestFor(job.address).path);
            if (!(picture ? AskFor(*picture, job.file) : WritePage(job))) return *error = error_, false;
        }
        while (!asked_.empty())
            if (!TakeOldest()) return *error = error_, false;
        return true;
    }

  private:
    struct Asked {
        std::string file;
        std::future<std::string> jpeg;
    };

    bool WriteFile(const std::string& name, const std::string& text) {
        const std::string path = folder_ + "/" + name;
        std::error_code made;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path(), made);
        const ctl::UniqueFd file(
            open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644));
        for (size_t done = 0; file.valid() && done <= text.size();) {
            const ssize_t written = write(file.get(), text.data() + done, text.size() - done);
            if (written < 0 && errno == EINTR) continue;
            if (written < 0) break;
            done += static_cast<size_t>(written);
            if (done == text.size()) return true;
        }
        error_ = path + ": " + strerror(errno);
        return false;
    }

    bool WritePage(const KeptNames::Job& job) {
        const Request request = RequestFor(job.address);
        const AddressWriter writer = names_.WriterFor(job.file);
        return WriteFile(job.file, SitePage({library_, request, &writer, true}).body);
    }

    bool AskFor(const MediaAddress& picture, const std::string& name) {
        ctl::UniqueFd file;
        const OpenVerdict verdict = picture.kind == MediaAddress::kSmall
                                        ? library_.OpenListed(picture.path, &file)
                                        : library_.OpenCover(picture.path, &file);
        if (verdict != OpenVerdict::kOpened) return WriteFile(name, EmptyPicture());
        const auto made = std::make_shared<std::promise<std::string>>();
        asked_.push_back({name, made->get_future()});
        pictures_.Ask(std::move(file), PictureName(picture), picture.side,
                      [made](PictureResult, std::string jpeg) { made->set_value(std::move(jpeg)); });
        return asked_.size() < kAtOnce || TakeOldest();
    }

    bool TakeOldest() {
        Asked oldest = std::move(asked_.front());
        asked_.pop_front();
        const std::string jpeg = oldest.jpeg.get();
        return WriteFile(oldest.file, jpeg.empty() ? EmptyPicture() : jpeg);
    }

    const Library& library_;
    Pictures& pictures_;
    const std::string folder_;
    KeptNames names_;
    std::deque<Asked> asked_;
    std::string error_;
};

}  // namespace

bool KeepSite(const Library& library, Pictures& pictures, const std::string& folder, std::string* error) {
    const size_t end = folder.find_last_not_of('/');
    const std::string place = end == std::string::npos ? "" : folder.substr(0, end + 1);
    std::error_code failed;
    if (place.empty() ||
        (std::filesystem::exists(place, failed) && !std::filesystem::is_empty(place, failed)))
        return *error = folder + ": it must be an empty folder, or not be there", false;
    std::string part = place + ".XXXXXX";
    if (mkdtemp(part.data()) == nullptr) return *error = part + ": " + strerror(errno), false;
    bool is_done = KeptSite(library, pictures, part).Write(error);
    if (is_done && (chmod(part.c_str(), 0755) != 0 || rename(part.c_str(), place.c_str()) != 0)) {
        *error = place + ": " + strerror(errno);
        is_done = false;
    }
    if (!is_done) std::filesystem::remove_all(part, failed);
    return is_done;
}

}  // namespace koli::serve
