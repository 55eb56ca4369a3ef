// What is sent for a reply: the server's headers, validators, and the asked range of a file.
#pragma once

#include <microhttpd.h>

#include <memory>

#include "tools/serve/http/exchange.h"

namespace koli::serve {

struct ResponseDeleter {
    void operator()(MHD_Response* response) const { MHD_destroy_response(response); }
};
using Response = std::unique_ptr<MHD_Response, ResponseDeleter>;

/// What is sent for a reply to `request`; `status` becomes the reply's, or that of its range or validator
/// (206, 304, 404, 416).  Null when there is no memory, or a header cannot be sent.
Response ResponseOf(const Request& request, Reply reply, int* status);

}  // namespace koli::serve
