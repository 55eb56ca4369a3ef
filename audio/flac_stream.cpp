#include "audio/flac_stream.h"

#include <FLAC/stream_decoder.h>

#include <cstring>

namespace koli {
namespace {

struct DecoderDelete {
    void operator()(FLAC__StreamDecoder* decoder) const { FLAC__stream_decoder_delete(decoder); }
};

struct FlacStream {
    const MediaFile& file;
    int64_t position = 0;
    FlacBlock block = nullptr;
    bool has_error = false;
    // Of the search for the marker.  An ID3 tag is skipped by its length, of which holes are a part.
    uint8_t before[2] = {};  // the bytes before `position`
    bool may_be_in_tag = false;

    size_t Read(uint8_t* bytes, size_t count);
    void LookForTag(const uint8_t* bytes, size_t count);
};

/// While libFLAC searches, zeros, once it has seen two of them, leave it where it is.
size_t FlacStream::Read(uint8_t* bytes, size_t count) {
    if (!may_be_in_tag && before[0] == 0 && before[1] == 0) position = file.SkipHole(position);
    const size_t got = file.Read(position, bytes, count);
    position += static_cast<int64_t>(got);
    return got;
}

void FlacStream::LookForTag(const uint8_t* bytes, size_t count) {
    if (count == 0) return;
    const uint8_t seam[] = {before[0], before[1], bytes[0], count > 1 ? bytes[1] : uint8_t{0}};
    may_be_in_tag =
        memmem(seam, sizeof seam, "ID3", 3) != nullptr || memmem(bytes, count, "ID3", 3) != nullptr;
    before[0] = count > 1 ? bytes[count - 2] : before[1];
    before[1] = bytes[count - 1];
}

FLAC__StreamDecoderReadStatus OnRead(const FLAC__StreamDecoder* decoder, FLAC__byte bytes[], size_t* count,
                                     void* client) {
    auto* stream = static_cast<FlacStream*>(client);
    const bool searches = FLAC__stream_decoder_get_state(decoder) == FLAC__STREAM_DECODER_SEARCH_FOR_METADATA;
    if (!searches) stream->may_be_in_tag = true;
    *count = stream->Read(bytes, *count);
    if (!stream->may_be_in_tag) stream->LookForTag(bytes, *count);
    if (*count > 0) return FLAC__STREAM_DECODER_READ_STATUS_CONTINUE;
    return stream->position >= stream->file.size() ? FLAC__STREAM_DECODER_READ_STATUS_END_OF_STREAM
                                                   : FLAC__STREAM_DECODER_READ_STATUS_ABORT;
}

FLAC__bool OnIsEnd(const FLAC__StreamDecoder*, void* client) {
    const auto* stream = static_cast<FlacStream*>(client);
    return stream->position >= stream->file.size();
}

FLAC__StreamDecoderWriteStatus OnSound(const FLAC__StreamDecoder*, const FLAC__Frame*,
                                       const FLAC__int32* const[], void*) {
    return FLAC__STREAM_DECODER_WRITE_STATUS_CONTINUE;
}

void OnBlock(const FLAC__StreamDecoder*, const FLAC__StreamMetadata* block, void* client) {
    auto* stream = static_cast<FlacStream*>(client);
    if (stream->has_error || stream->block != nullptr) return;
    stream->block.reset(FLAC__metadata_object_clone(block));
    stream->has_error = stream->block == nullptr;
}

/// Bytes that are no FLAC may stand before the marker.
void OnError(const FLAC__StreamDecoder*, FLAC__StreamDecoderErrorStatus status, void* client) {
    if (status != FLAC__STREAM_DECODER_ERROR_STATUS_LOST_SYNC)
        static_cast<FlacStream*>(client)->has_error = true;
}

}  // namespace

FlacBlock FlacBlockRead(const MediaFile& file, FLAC__MetadataType type) {
    FlacStream stream{file};
    const std::unique_ptr<FLAC__StreamDecoder, DecoderDelete> decoder(FLAC__stream_decoder_new());
    if (decoder == nullptr) return nullptr;
    FLAC__stream_decoder_set_md5_checking(decoder.get(), false);
    FLAC__stream_decoder_set_metadata_ignore_all(decoder.get());
    FLAC__stream_decoder_set_metadata_respond(decoder.get(), type);
    const bool is_read =
        FLAC__stream_decoder_init_stream(decoder.get(), OnRead, nullptr, nullptr, nullptr, OnIsEnd, OnSound,
                                         OnBlock, OnError, &stream) == FLAC__STREAM_DECODER_INIT_STATUS_OK &&
        FLAC__stream_decoder_process_until_end_of_metadata(decoder.get()) != 0;
    return is_read && !stream.has_error ? std::move(stream.block) : nullptr;
}

}  // namespace koli
