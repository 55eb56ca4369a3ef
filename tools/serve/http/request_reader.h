// What the library has read of a request, as this server sees it.
#pragma once

#include <microhttpd.h>

#include "tools/serve/http/exchange.h"

namespace koli::serve {

/// Fills in the request of a connection but for its address, which it has, and its form.  Returns the status
/// to refuse it with (400 and the like), 0 when it is well formed.  Throws when there is no memory.
int ReadRequest(MHD_Connection* connection, const char* path, const char* method, const char* version,
                Request* request);

/// Whether the head of a request that was read is as long as what was understood of it is, written as
/// everybody writes it.  In another one something may be hidden: the library takes a line without a name for
/// the head's end, drops what is behind a NUL, and appends a folded line to the name.  Whoever stands between
/// may have seen the request end elsewhere, so nothing must be read behind it.
bool IsPlainHead(MHD_Connection* connection, const Request& request);

/// The methods that the request's path takes, for "Allow".
const char* MethodsOf(const Request& request);

}  // namespace koli::serve
