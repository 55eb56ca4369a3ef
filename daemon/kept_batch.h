// A batch that could not be done: when it is tried again, and the file that tells other programs of it.
//
// The state file, lines of KEY=VALUE, is written whole and is gone when no batch is kept:
//   batch=kept
//   database=photo.db      the one that refuses, or "media.db, photo.db"; empty when it is something else
//   reason=TEXT
//   since=SECONDS          of the epoch, when it was kept first
//   retry=SECONDS          of the epoch, when it is tried again
#pragma once

namespace koli {

/// Keeps the batch: it is tried again after 10 seconds, then after twice as long, up to 5 minutes. `database`
/// and `reason` are texts of one line for `state_file`.
void BatchKeep(const char* state_file, const char* database, const char* reason);

/// The batch is done, or there is none.
void BatchForget(const char* state_file);

bool IsBatchKept();

/// For how many seconds it has been kept, and how many are left until it is tried again; 0 without one.
int BatchKeptSeconds();
int BatchRetrySeconds();

}  // namespace koli
