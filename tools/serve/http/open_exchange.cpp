#include "tools/serve/http/open_exchange.h"

namespace koli::serve {

Responder::~Responder() {
    if (exchange_) exchange_->Answer(PlainReply(503, "The server could not answer this."));
}

void Responder::Answer(Reply reply) {
    if (exchange_) exchange_->Answer(std::move(reply));
}

}  // namespace koli::serve
