// The metadata blocks of a FLAC file, found by libFLAC in a file that is read with a reader of ours.
#pragma once

#include <FLAC/metadata.h>

#include <memory>

#include "base/regular_file.h"

namespace koli {

struct FlacBlockDelete {
    void operator()(FLAC__StreamMetadata* block) const { FLAC__metadata_object_delete(block); }
};
using FlacBlock = std::unique_ptr<FLAC__StreamMetadata, FlacBlockDelete>;

/// The first block of `type`; null when there is none or the file is damaged before it or behind it.  It is
/// what FLAC__metadata_get_streaminfo and FLAC__metadata_get_tags find in the file.  Those open it
/// themselves, search all of it for its marker and follow its blocks however many there are, so that a sparse
/// file of a terabyte would hold the daemon for hours: here the processor time is bounded as for every other
/// reader (base/file_reading.h), and the holes in front of the marker are stepped over.
FlacBlock FlacBlockRead(const MediaFile& file, FLAC__MetadataType type);

}  // namespace koli
