// The queue run: takes the queue file over as a batch and works through its lines.
#pragma once

namespace koli {

/// The files of a queue run.
struct QueueFiles {
    const char* queue;           // other programs append to it
    const char* batch;           // the queue's name while it is worked through
    const char* state;           // tells of a kept batch (kept_batch.h)
    const char* remove_command;  // shell text that clears away whatever stands at `batch`
};

/// One run on the daemon's own files: the pending batch if there is one, else the queue is taken over.  The
/// batch goes when the databases hold what it did; the media servers are told.  Else it is kept, to be tried
/// again (kept_batch.h); when that succeeds, a further run takes what has waited behind it.
void ProcessIndexQueue();

/// The same on other files.
void ProcessQueueFiles(const QueueFiles& files);

}  // namespace koli
