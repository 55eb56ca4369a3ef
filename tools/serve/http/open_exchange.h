// A request between its arrival and its answer.
#pragma once

#include <microhttpd.h>

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "tools/serve/http/exchange.h"

namespace koli::serve {

/// A request under way.  Its connection sleeps (is suspended) while the answer is waited for.
class Exchange {
  public:
    Exchange(MHD_Connection* of, std::string address) : connection(of) {
        request.address = std::move(address);
    }
    /// Whoever comes first answers.
    void Answer(Reply reply) {
        const std::lock_guard lock(mutex_);
        if (is_over_ || reply_) return;
        reply_ = std::move(reply);
        if (std::exchange(is_asleep_, false)) MHD_resume_connection(connection);
    }
    /// The answer; nothing when there is none yet: then the connection sleeps until there is.
    std::optional<Reply> TakeOrSleep() {
        const std::lock_guard lock(mutex_);
        if (reply_) return std::exchange(reply_, std::nullopt);
        is_asleep_ = true;
        MHD_suspend_connection(connection);
        return std::nullopt;
    }
    /// The connection is not to be touched any more.
    void End() {
        const std::lock_guard lock(mutex_);
        is_over_ = true;
    }

    // What the thread of the connection alone knows.
    Request request;
    MHD_Connection* const connection;
    std::unique_ptr<MHD_PostProcessor, decltype(&MHD_destroy_post_processor)> form{
        nullptr, MHD_destroy_post_processor};
    bool is_read = false;    // its head
    bool is_handed = false;  // to the handler
    bool is_last = false;    // of its connection

  private:
    std::mutex mutex_;
    std::optional<Reply> reply_;
    bool is_asleep_ = false;
    bool is_over_ = false;
};

}  // namespace koli::serve
