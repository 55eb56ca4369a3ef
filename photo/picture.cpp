#include "photo/picture.h"

#include "photo/exif.h"
#include "platform/koliindex.h"

namespace koli {

const PhotoRecord& Picture::Exif() {
    if (!exif_.has_value()) {
        exif_.emplace(PhotoRecord{});
        if (Open()) ExifRead(file_, &*exif_);
    }
    return *exif_;
}

bool Picture::SizeGet(int* width, int* height) {
    if (!size_.has_value()) {
        size_.emplace(Size{});
        size_->is_known =
            Open() && KOLIIndexImgResRead(file_.descriptor(), &size_->width, &size_->height) == 0;
    }
    if (!size_->is_known) return false;
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

bool Picture::Open() {
    if (!is_opened_) file_.Open(path_);
    is_opened_ = true;
    return file_.ok();
}

}  // namespace koli
