// One writer for each database of a library.
//
// A session that was given up may still stand on the server with writes that it has not done yet: a stopped
// server wakes up, a network comes back.  So a writer holds a lock as long as its session lasts, and a new
// one ends the session that holds it, and waits until that is gone.  Only one of the same host, though: two
// hosts that were given the same library must not end each other for ever.
#pragma once

#include "platform/host/postgresql/connection.h"

namespace koli::host {

/// Takes the lock of KOLI_MEDIA_DB or KOLI_PHOTO_DB in the connection's schema.  False, for a reason that
/// passes, when another host's session holds it, or one that does not end within some seconds.
bool FenceTake(Postgresql& sql, int database);

/// Whether a session holds that lock, and still does after a second.
bool FenceIsHeld(Postgresql& sql, int database);

}  // namespace koli::host
