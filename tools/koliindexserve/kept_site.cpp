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

    bool Write(const std::function<bool()>& is_wanted) {
        KeptNames::Job job;
        while (names_.Next(&job)) {
            if (!is_wanted()) return error_ = "interrupted", false;
            const auto picture = MediaAddressOf(RequestFor(job.address).path);
            if (!(picture ? AskFor(*picture, job.file) : WritePage(job))) return false;
        }
        while (!asked_.empty())
            if (!TakeOldest()) return false;
        return true;
    }
    const std::string& error() const { return error_; }

  private:
    struct Asked {
        std::string file;
        std::future<std::string> jpeg;
    };

    static int Create(const std::string& path) {
        return open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
    }

    bool WriteFile(const std::string& name, const std::string& text) {
        const std::string path = folder_ + "/" + name;
        UniqueFd file(Create(path));
        if (!file.valid() && errno == ENOENT) {
            std::error_code failed;
            std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
            if (failed) return error_ = path + ": " + failed.message(), false;
            file = UniqueFd(Create(path));
        }
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
        UniqueFd file;
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

/// A folder beside the one that is wanted; unless it has taken that one's place it goes with all that is in
/// it.
class PartFolder {
  public:
    explicit PartFolder(std::string place) : place_(std::move(place)), path_(place_ + ".XXXXXX") {
        is_made_ = mkdtemp(path_.data()) != nullptr;
    }
    ~PartFolder() {
        std::error_code ignored;
        if (is_made_) std::filesystem::remove_all(path_, ignored);
    }
    PartFolder(const PartFolder&) = delete;
    PartFolder& operator=(const PartFolder&) = delete;

    bool is_made() const { return is_made_; }
    const std::string& path() const { return path_; }
    bool TakePlace() {
        if (chmod(path_.c_str(), 0755) != 0 || rename(path_.c_str(), place_.c_str()) != 0) return false;
        is_made_ = false;
        return true;
    }

  private:
    const std::string place_;
    std::string path_;
    bool is_made_ = false;
};

/// Where the folder is to be, links resolved; "" with the reason when it cannot be put there.
std::string PlaceFor(const std::string& folder, std::string* error) {
    namespace fs = std::filesystem;
    std::error_code failed;
    fs::path place = fs::weakly_canonical(fs::absolute(folder, failed), failed);
    if (!place.has_filename()) place = place.parent_path();
    *error = folder + ": it must be an empty folder, or not be there";
    if (folder.empty() || place.empty()) return "";
    if (!fs::exists(place, failed)) return place;
    // No look at the folder itself, which fails on machines of 32 bits when it is dated after 2038.
    if (fs::directory_iterator(place, failed) != fs::directory_iterator() || failed) return "";
    struct stat own, above;
    const bool is_mount = stat(place.c_str(), &own) != 0 || stat(place.parent_path().c_str(), &above) != 0 ||
                          own.st_dev != above.st_dev;
    if (!is_mount) return place;
    *error = folder + ": a file system begins there; name a new folder in it";
    return "";
}

}  // namespace

bool KeepSite(const Library& library, Pictures& pictures, const std::string& folder,
              const std::function<bool()>& is_wanted, std::string* error) {
    const std::string place = PlaceFor(folder, error);
    if (place.empty()) return false;
    PartFolder part(place);
    if (!part.is_made()) return *error = part.path() + ": " + strerror(errno), false;
    KeptSite site(library, pictures, part.path());
    if (!site.Write(is_wanted)) return *error = site.error(), false;
    if (!part.TakePlace()) return *error = place + ": " + strerror(errno), false;
    return true;
}

}  // namespace koli::serve
