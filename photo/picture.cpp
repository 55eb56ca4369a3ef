#include "photo/picture.h"

#include <cerrno>

#include "base/passing_error.h"
#include "photo/exif.h"
#include "platform/koliindex.h"

namespace koli {

const PhotoRecord& Picture::Exif(FileReading& reading) {
    if (!exif_.has_value()) {
        exif_.emplace(PhotoRecord{});
        is_exif_read_ = !Open(reading) || ExifRead(file_, &*exif_);
    }
    if (!is_exif_read_) reading.Trouble(kExifUnreadable);
    return *exif_;
}

bool Picture::SizeGet(int* width, int* height, FileReading& reading) {
    if (!size_.has_value()) {
        size_.emplace(Size{});
        if (!Open(reading)) return false;
        size_->is_known = KOLIIndexImgResRead(file_.descriptor(), &size_->width, &size_->height) == 0;
        if (!size_->is_known) reading.ReadFailed(errno);
    }
    if (!size_->is_known) {
        if (file_.ok()) reading.Trouble("the size of the picture cannot be read");
        return false;
    }
    *width = size_->width;
    *height = size_->height;
    return true;
}

void Picture::Forget() {
    file_.Close();
    is_opened_ = false;
    exif_.reset();
    size_.reset();
}

/// What has gone since it was looked at is no trouble.
bool Picture::Open(FileReading& reading) {
    file_.HandTo(reading);
    if (!is_opened_ && !file_.Open(path_, reading) && !MeansAbsent(errno))
        reading.Trouble("the file cannot be read", errno);
    is_opened_ = true;
    return file_.ok();
}

}  // namespace koli
