// One line of the indexing queue.
//
//   byte  content
//   0     request code, one letter
//   1     ':'
//   2..   argument: a path, two paths with a ':' between them, or a word; blanks belong to it
//   last  '\n'
#pragma once

#include <cstddef>
#include <cstdio>

#include "platform/kolidb.h"
#include "platform/paths.h"

namespace koli {

/// What one read took from the queue.
struct QueueLine {
    enum End {
        kNewline,  // the text ends with its newline
        kFile,     // the file ended first
        kFilled,   // the text fills the buffer, and its newline is all that is read as a further line
        kFull,     // the line is longer than the buffer: the rest is read as a further line
        kNul       // a zero byte ended it: no request holds one
    };
    char text[paths::kQueueLineSize];
    size_t length;  // of text, at least 1 except with kNul
    End end;
};

/// Reads the next line; false at the end of the file.  A run of zero bytes, which a power cut can leave in a
/// file, ends a line like a newline does, so that it cannot hide the whole line behind it.
bool QueueLineRead(FILE* file, QueueLine* line);

/// Executes one line in the stores that `stores` names (KOLIDatabase); its text is changed.  A line that is
/// no request is logged.
void QueueLineExecute(QueueLine* line, int stores = KOLI_MEDIA_DB | KOLI_PHOTO_DB);

}  // namespace koli
