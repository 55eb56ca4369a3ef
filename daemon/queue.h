// The queue run: takes the queue file over as a batch and works through its lines.
#pragma once

#include <cstdio>

namespace koli {

/// The files of a queue run.
struct QueueFiles {
    const char* queue;           // other programs append to it
    const char* batch;           // the queue's name while it is worked through
    const char* remove_command;  // shell text that clears away whatever stands at `batch`
};

/// One run on the daemon's own files: the pending batch if there is one, else the queue is taken over.  The
/// batch goes when the databases hold what it did; the media servers are told.
void ProcessIndexQueue();

/// The same on other files.
void ProcessQueueFiles(const QueueFiles& files);

/// Executes the lines of a batch from the stream's position to its end.
void ProcessBatchLines(FILE* batch);

}  // namespace koli
