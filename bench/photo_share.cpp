#include "bench/photo_share.h"

#include <filesystem>
#include <string>

#include "bench/measure.h"

namespace koli::bench {

void FillPhotoShare(const char* photo, int folders, int photos) {
    namespace fs = std::filesystem;
    const fs::path share = "/volume1/photo", original = "/volume1/original";
    // Whatever is there on a machine of its own would be lost.
    if (!fs::exists("/run/syslog")) Fail("no sandbox: /run/syslog");
    for (const auto& entry : fs::directory_iterator(share))
        fs::remove_all(entry);
    fs::copy_file(photo, original, fs::copy_options::overwrite_existing);
    for (int folder = 0; folder < folders; ++folder) {
        const fs::path path = share / ("Album " + std::to_string(folder));
        fs::create_directory(path);
        for (int i = 0; i < photos; ++i)
            fs::create_hard_link(original, path / ("IMG_" + std::to_string(i) + ".jpg"));
    }
}

}  // namespace koli::bench
