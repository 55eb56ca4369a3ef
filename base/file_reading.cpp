#include "base/file_reading.h"

#include <cstdio>
#include <cstring>

#include "base/passing_error.h"
#include "base/reading.h"

namespace koli {
namespace {

FileReading* innermost = nullptr;

}  // namespace

FileReading::FileReading(const char* path) : path_(path), outer_(innermost), past_(ReadingMarkLook(path)) {
    trouble_[0] = '\0';
    innermost = this;
    ReadingMarkSet(path_);
    ReadingBegin(path_);
}

FileReading::~FileReading() {
    innermost = outer_;
    ReadingMarkSet(outer_ != nullptr ? outer_->path_ : nullptr);
}

void FileTrouble(const char* what, int error) {
    FileReading* const reading = innermost;
    if (reading == nullptr) return;
    const bool is_passing = IsPassingError(error);
    if (reading->trouble_[0] != '\0' && (reading->IsPassing() || !is_passing)) return;
    reading->passing_error_ = is_passing ? error : 0;
    snprintf(reading->trouble_, sizeof reading->trouble_, "%s: %s", what, strerror(error));
}

int PassingFileTrouble() {
    return innermost != nullptr ? innermost->passing_error_ : 0;
}

}  // namespace koli
