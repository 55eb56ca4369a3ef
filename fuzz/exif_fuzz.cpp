// The EXIF reader, libexif included, on arbitrary bytes.
#include <cstdlib>
#include <cstring>

#include "base/path_names.h"
#include "fuzz/memory_file.h"
#include "photo/exif.h"
#include "photo/photo_library.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    koli::PhotoRecord record{};
    koli::CopyText(record.path, sizeof record.path, koli::test::MemoryFile(data, size).c_str());
    if (koli::ExifFillPhotoRecord(&record) != 0) abort();
    if (strnlen(record.camera_make, sizeof record.camera_make) == sizeof record.camera_make) abort();
    if (strnlen(record.camera_model, sizeof record.camera_model) == sizeof record.camera_model) abort();
    if (strnlen(record.exposure_time, sizeof record.exposure_time) == sizeof record.exposure_time) abort();
    if (strnlen(record.f_number, sizeof record.f_number) == sizeof record.f_number) abort();
    if (strnlen(record.date_taken, sizeof record.date_taken) == sizeof record.date_taken) abort();
    koli::PhotoRecordSanitize(&record);
    if (record.width < 0 || record.width > koli::kMaxPhotoPixels) abort();
    return 0;
}
