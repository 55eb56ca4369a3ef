// Opening files that users can replace at any moment.
#pragma once

namespace koli {

/// Opens `path` for reading, close-on-exec; neither a FIFO nor a device that took the file's place can block
/// the caller, who checks what was opened.  A file on which a file server holds a lease (a client has it
/// open) is waited for until the server has given the lease up.  Returns the descriptor, or -1 with errno
/// set.
int OpenForReading(const char* path);

/// The same for a regular file; anything else is refused with EINVAL.
int OpenRegularForReading(const char* path);

}  // namespace koli
