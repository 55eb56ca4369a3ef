// The file system of the photo share.
#pragma once

namespace koli {

/// True when the photo share lies on a file system whose directory listings do not tell reliably what an
/// entry is; whoever lists it asks about each entry then.
extern bool photo_share_needs_type_check;

/// Looks at the file system behind the photo share and sets the flag; a failure is logged and leaves it as it
/// was.
void PhotoShareFsCheck();

}  // namespace koli
