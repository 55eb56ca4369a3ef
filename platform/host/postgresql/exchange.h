// Messages that are sent one behind the other and answered together.
#pragma once

#include <string>
#include <vector>

#include "platform/host/postgresql/link.h"
#include "platform/host/postgresql/statement.h"

namespace koli::host {

/// One that is not finished makes the link lost: its answers would be taken for others'.
class Exchange {
  public:
    explicit Exchange(Link& link) : link_(link) {}
    ~Exchange();
    Exchange(const Exchange&) = delete;

    /// Puts a message behind the others; returns its place among them.  A kept statement is prepared on its
    /// first use.
    size_t Say(const std::string& text, const std::vector<Parameter>& parameters = {});
    size_t Run(PostgresqlStatement& statement, const std::vector<Parameter>& parameters);
    void Push() { link_.Push(); }

    /// Waits for all answers.  False when one is a failure, behind which nothing has been done, or the link
    /// is lost.
    bool Finish();
    size_t failed() const { return failed_; }  ///< the place of the message that has failed
    const SqlFailure& failure() const { return failure_; }
    Result TakeAnswer(size_t place) { return std::move(messages_[place].answer); }
    /// The rows that an answer says were changed.
    int Changed(size_t place) const;

  private:
    struct Message {
        PostgresqlStatement* prepared = nullptr;  // that is prepared by it
        Result answer{nullptr, &PQclear};
    };
    bool Take(size_t place, Result answer);

    Link& link_;
    std::vector<Message> messages_;
    bool is_finished_ = true;
    size_t failed_ = 0;
    SqlFailure failure_;
};

}  // namespace koli::host
