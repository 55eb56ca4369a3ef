// The EXIF reader, libexif included, on arbitrary bytes.
#include <cstdlib>
#include <string_view>

#include "base/path_names.h"
#include "fuzz/memory_file.h"
#include "photo/exif.h"
#include "photo/photo_library.h"
#include "tests/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::PhotoRecord record{};
    koli::CopyText(record.path, sizeof record.path, koli::test::MemoryFile(data, size).c_str());
    if (koli::ExifFillPhotoRecord(&record, koli::test::Reading()) != 0) abort();
    const auto require_end = [](const auto&... texts) {
        if (((std::string_view(texts, sizeof texts).find('\0') == std::string_view::npos) || ...)) abort();
    };
    require_end(record.camera_make, record.camera_model, record.exposure_time, record.f_number,
                record.date_taken);
    koli::PhotoRecordSanitize(&record);
    if (record.width < 0 || record.width > koli::kMaxPhotoPixels) abort();
    return 0;
}
