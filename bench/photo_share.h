// A photo share of any size, made in no time; only where /volume1 belongs to the sandbox.
#pragma once

namespace koli::bench {

/// Empties /volume1/photo and makes `folders` folders in it, each with `photos` links to one copy of `photo`.
void FillPhotoShare(const char* photo, int folders, int photos);

}  // namespace koli::bench
