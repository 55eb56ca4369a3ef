// Which files could not be parsed or read, and why: table `problem` of the media store.
//
// Who reads a file says what was wrong with it (KOLIProblemSet), or that nothing was (KOLIProblemClear).  The
// media store and the photo library do so apart: their rows are told apart by `kind`, and of what both say in
// the same words one row is kept.
//
// A file that fails for the same reason as before writes nothing, nor does one that never failed.
#pragma once

namespace koli::host {

/// A batch begins: other programs may have changed the table.
void ProblemBatchBegin();

/// The file at `path` has left the store; everything at and below `path` has.
void ProblemForget(const char* path);
void ProblemForgetBelow(const char* path);

/// All files of a table are about to leave the store.
void ProblemForgetTable(const char* table);

}  // namespace koli::host
