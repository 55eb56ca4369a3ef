// What the request codes of the indexing queue do.
//
//   code  argument            meaning
//   A     path                add or refresh a file or a tree
//   D     path                remove a file or a tree that is gone
//   a     path                add or refresh one file
//   d     path                remove one file that is gone
//   N     new path:old path   a file or directory was moved
//   R     word                rebuild "photo", "music", "video", or with any other word all media entries
//   T     table               empty a database table
//   U     "photo"             look through the photo share again; any other word does nothing
#pragma once

namespace koli {

/// The argument of a request.
struct RequestArgument {
    char* text;    // changed in place
    bool is_cut;   // the line was longer than its buffer: the end of the text is missing
    bool has_end;  // false when the file ended first: the end of the text may be missing
    int stores;    // where the request is to take effect (KOLIDatabase)
};

/// Executes one request; false when the code is unknown.  Nothing that a request does ends the run: what
/// fails is logged where it fails.  Each request looks at what is on the disk first, so that a batch can be
/// repeated; what could not be looked at is not removed.
///
/// A store that is not among `stores`, or refuses changes (KOLIDBRefusing), is left alone; with the photo
/// database that goes for the converters' work too.
bool RequestExecute(char code, RequestArgument argument);

/// Whether the request still works on a store (one of KOLIDatabase).
bool RequestWorksOn(const RequestArgument& argument, int store);

/// Whether the request has anything to do for `path` in the photo library.
bool RequestWorksOnPhotos(const RequestArgument& argument, const char* path);

}  // namespace koli
