// What the databases say about a path, beside what is there on the disk.
#pragma once

#include <string>

#include "tools/ctl/path_reasons.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {

/// How something is stored.
struct StoredAs {
    std::string kind = {};      // its table: "music", ..., "folder"; "" = it is not stored
    bool is_in_photos = false;  // of a picture: also in the photo library
    bool is_in_step = false;    // what is stored is what is there
    Reasons reasons = {};       // why not, and what could not be read
};

/// The name of a kind of file, a StoreType; "" for a file that is not indexed.
std::string KindName(int type);

/// Compares one file, or a folder with all that is in it, with the databases.  Failures show in
/// store.error().
StoredAs StoredAsOf(const StoreReader& store, const std::string& path);

}  // namespace koli::ctl
