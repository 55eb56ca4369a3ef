#include "platform/host/postgresql/exchange.h"

#include <cstdlib>
#include <utility>

#include "platform/host/postgresql/bytes.h"
#include "platform/host/postgresql/failure.h"

namespace koli::host {
namespace {

SqlFailure FailureOf(const PGresult* answer) {
    const char* state = PQresultErrorField(answer, PG_DIAG_SQLSTATE);
    const char* message = PQresultErrorField(answer, PG_DIAG_MESSAGE_PRIMARY);
    std::string scratch;
    return ServerFailure(state != nullptr ? state : "",
                         OwnBytes(message != nullptr ? message : "?", &scratch));
}

}  // namespace

Exchange::~Exchange() {
    if (!is_finished_) link_.Lose("an answer was not waited for");
}

size_t Exchange::Say(const std::string& text, const std::vector<Parameter>& parameters) {
    messages_.emplace_back();
    is_finished_ = false;
    link_.Query(text, parameters);
    return messages_.size() - 1;
}

size_t Exchange::Run(PostgresqlStatement& statement, const std::vector<Parameter>& parameters) {
    if (statement.name().empty()) return Say(statement.server().text, parameters);
    messages_.emplace_back();
    is_finished_ = false;
    if (!statement.is_prepared) {
        messages_.back().prepared = &statement;
        link_.Prepare(statement.name(), statement.server().text);
        statement.is_prepared = true;  // for those behind it; Finish tells
    }
    link_.Execute(statement.name(), parameters);
    return messages_.size() - 1;
}

/// False when it is a failure and no other came before it.
bool Exchange::Take(size_t place, Result answer) {
    const ExecStatusType status = PQresultStatus(answer.get());
    const bool is_good = status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
    if (!is_good && failure_.reason.empty()) {
        failed_ = place;
        failure_ = status == PGRES_FATAL_ERROR ? FailureOf(answer.get())
                                               : LostFailure("the server's answers make no sense");
    }
    messages_[place].answer = std::move(answer);
    return is_good;
}

bool Exchange::Finish() {
    link_.Sync();
    for (size_t place = 0; place < messages_.size() && !link_.is_lost(); ++place) {
        PostgresqlStatement* const prepared = messages_[place].prepared;
        if (prepared != nullptr) prepared->is_prepared = Take(place, link_.Answer());
        if (!link_.is_lost()) Take(place, link_.Answer());
    }
    if (!link_.is_lost() && PQresultStatus(link_.Answer().get()) != PGRES_PIPELINE_SYNC)
        link_.Lose("the server's answers make no sense");
    is_finished_ = true;
    if (link_.is_lost()) failure_ = LostFailure(link_.lost());
    return failure_.reason.empty();
}

int Exchange::Changed(size_t place) const {
    return static_cast<int>(strtol(PQcmdTuples(messages_[place].answer.get()), nullptr, 10));
}

}  // namespace koli::host
