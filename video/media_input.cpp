#include "video/media_input.h"

extern "C" {
#include <libavutil/mem.h>
}

#include <unistd.h>

#include <cerrno>
#include <string>

#include "video/probe_reads.h"

namespace koli {
namespace {

constexpr int kBufferBytes = 32768;  // as the library's own reader of files has

int RefuseOther(AVFormatContext*, AVIOContext**, const char*, int, AVDictionary**) {
    return AVERROR(EPERM);
}

}  // namespace

MediaInput::MediaInput(int file, const char* path, const char* formats, FileReading& reading)
    : file_(file), reading_(reading) {
    auto* const buffer = static_cast<unsigned char*>(av_malloc(kBufferBytes));
    io_ =
        buffer != nullptr ? avio_alloc_context(buffer, kBufferBytes, 0, this, Read, nullptr, Seek) : nullptr;
    if (io_ == nullptr) av_free(buffer);
    context_ = io_ != nullptr ? avformat_alloc_context() : nullptr;
    if (context_ == nullptr) return;
    context_->pb = io_;
    context_->io_open = RefuseOther;
    ProbeReadsRequest(file, Size());
    lseek(file, 0, SEEK_SET);

    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    av_dict_set(&options, "format_whitelist", formats, 0);
    const std::string url = std::string("file:") + path;
    avformat_open_input(&context_, url.c_str(), nullptr, &options);  // frees the context when it fails
    av_dict_free(&options);
}

MediaInput::~MediaInput() {
    avformat_close_input(&context_);
    if (io_ != nullptr) av_freep(static_cast<void*>(&io_->buffer));
    avio_context_free(&io_);
}

int MediaInput::Read(void* self, uint8_t* buffer, int size) {
    auto* const input = static_cast<MediaInput*>(self);
    input->ahead_.BeforeRead(input->file_, input->at_, size);
    ssize_t got = 0;
    do {
        got = read(input->file_, buffer, static_cast<size_t>(size));
    } while (got < 0 && errno == EINTR);
    if (got > 0) input->at_ += got;
    if (got == 0) return AVERROR_EOF;
    if (got < 0 && input->file_ >= 0) input->reading_.ReadFailedUnlogged(errno);
    return got > 0 ? static_cast<int>(got) : AVERROR(EIO);
}

int64_t MediaInput::Seek(void* self, int64_t offset, int whence) {
    auto* const input = static_cast<MediaInput*>(self);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE) return input->Size();
    const off_t at = lseek(input->file_, offset, whence);
    if (at < 0) return AVERROR(errno);
    input->at_ = at;
    return at;
}

/// Without fstat: where the C library asks for it by the call that also takes a path, the probe's child may
/// not.
int64_t MediaInput::Size() const {
    const off_t at = lseek(file_, 0, SEEK_CUR);
    const off_t size = lseek(file_, 0, SEEK_END);
    const int reason = errno;
    lseek(file_, at, SEEK_SET);
    return size >= 0 ? size : AVERROR(reason);
}

}  // namespace koli
