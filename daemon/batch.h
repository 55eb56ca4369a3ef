// The lines of a batch, and how far it has come.
//
// A batch that is interrupted or refused is executed again.  That is harmless for the media store, and not
// for the photo database: a rename done twice moves the wrong picture's caption.  So the photo database keeps
// a mark in the transaction of its changes: the bytes of the batch that it has, and a hash of them.  Lines
// before the mark work on the media store alone when they are executed again.
#pragma once

#include <cstdio>

namespace koli {

/// What became of the lines of a batch.
enum class BatchEnd {
    kDone,     // each one has been executed
    kRefused,  // a database has refused for a reason that passes
    kUnread,   // the file could not be read to its end; errno tells why
    kHeld,     // the last line has no newline yet, and a writer holds its lock
};

/// Executes the lines of a batch from its beginning.  `queue` is the file whose lines wait behind it.
/// `is_repeated`: it may have been executed before, wholly or in part, so that a mark of it counts.
/// `is_patient`: a last line without a newline waits for the writer that holds its lock.  With kDone the
/// batch is locked against writers who lock.
BatchEnd ProcessBatchLines(FILE* batch, const char* queue, bool is_repeated, bool is_patient);

}  // namespace koli
