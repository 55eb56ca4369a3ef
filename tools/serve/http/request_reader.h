// What the library has read of a request, as this server sees it.
#pragma once

#include <microhttpd.h>

#include "tools/serve/http/exchange.h"

namespace koli::serve {

/// Fills in the request of a connection but for its address, which it has, and its form.  Returns the status
/// to refuse it with (400 and the like), 0 when it is well formed.  Throws when there is no memory.
int ReadRequest(MHD_Connection* connection, const char* path, const char* method, const char* version,
                Request* request);

/// The methods that the request's path takes, for "Allow".
const char* MethodsOf(const Request& request);

}  // namespace koli::serve
