// Which files could not be parsed or read, and why: table `problem` of the media store.
//
// The daemon stores such a file like any other and raises an event for it afterwards.  So a save that its
// event does not follow means that the file has parsed, and its row goes; that shows only at the next
// operation of the store.  The reason is the first error line since the file was begun (LogFirst), or what
// KOLIProblemSet was told of the file before its event.  The photo library has no such order and says when
// its problems are over; the rows of both are told apart by their `kind`.
//
// A file that fails for the same reason as before writes nothing, nor does one that never failed.
#pragma once

namespace koli::host {

/// The event of a file that could not be parsed.
inline constexpr unsigned kEventUnparsable = 0x11B00510;

/// The file at `path` has been saved.
void ProblemSaved(const char* path);

/// The event came for `path`.
void ProblemRaised(const char* path);

/// A batch begins: other programs may have changed the table.
void ProblemBatchBegin();

/// Something else is about to happen to the store: the file saved last has parsed.
void ProblemSettle();

/// The file at `path` has left the store; everything at and below `path` has.
void ProblemForget(const char* path);
void ProblemForgetBelow(const char* path);

/// All files of a table are about to leave the store.
void ProblemForgetTable(const char* table);

}  // namespace koli::host
