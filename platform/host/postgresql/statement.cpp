#include "platform/host/postgresql/statement.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/host/postgresql/bytes.h"
#include "platform/host/postgresql/connection.h"

namespace koli::host {
namespace {

// Types by their numbers, which never change.
constexpr Oid kInt8 = 20, kInt2 = 21, kInt4 = 23, kFloat4 = 700, kFloat8 = 701;

/// With fifteen digits and a point, as every engine writes it.
std::string RealText(double value) {
    char text[32];
    snprintf(text, sizeof text, "%.15g", value);
    std::string real = text;
    if (real.find('.') == std::string::npos) real.insert(std::min(real.find('e'), real.size()), ".0");
    return real;
}

}  // namespace

PostgresqlStatement::PostgresqlStatement(Postgresql& owner, ServerStatement server, std::string name)
    : owner_(owner),
      server_(std::move(server)),
      name_(std::move(name)),
      parameters_(static_cast<size_t>(server_.parameters)) {}

PostgresqlStatement::~PostgresqlStatement() {
    owner_.EndFetch(*this);
}

// ---- Parameters

void PostgresqlStatement::Set(int index, std::string text) {
    const auto place = static_cast<size_t>(index);
    const int number = place < server_.numbers.size() ? server_.numbers[place] : 0;
    if (number > 0) parameters_[static_cast<size_t>(number) - 1] = {std::move(text), false};
}

void PostgresqlStatement::Text(int index, std::string_view value) {
    std::string scratch;
    Set(index, std::string(ServerText(value, &scratch)));
}

void PostgresqlStatement::Integer(int index, int64_t value) {
    Set(index, std::to_string(value));
}

void PostgresqlStatement::Real(int index, double value) {
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    Set(index, std::string(text, end));
}

std::vector<Parameter> PostgresqlStatement::TakeParameters() {
    return std::exchange(parameters_, std::vector<Parameter>(parameters_.size()));
}

// ---- Rows

bool PostgresqlStatement::Next() {
    if (answer_ != nullptr && ++row_ < PQntuples(answer_.get())) return true;
    if (!is_at_end_) {
        answer_ = owner_.Fetch(*this, &is_at_end_);
        failed_ = answer_ == nullptr;
        row_ = 0;
        if (!failed_ && PQntuples(answer_.get()) > 0) return true;
    }
    Reset();
    return false;
}

/// The answer stays until the next one: its columns can be asked for.
void PostgresqlStatement::Reset() {
    owner_.EndFetch(*this);
    parameters_.assign(parameters_.size(), {});
    row_ = -1;
    is_at_end_ = false;
    if (answer_ != nullptr) answer_.reset();
}

const char* PostgresqlStatement::Name(int column) const {
    return PQfname(answer_.get(), column);
}

/// A server may give fewer columns than it was asked for.
bool PostgresqlStatement::HasField(int column) const {
    return answer_ != nullptr && row_ >= 0 && row_ < PQntuples(answer_.get()) && column < columns();
}

std::string_view PostgresqlStatement::Field(int column) const {
    if (!HasField(column)) return "";
    const char* const text = PQgetvalue(answer_.get(), row_, column);
    const auto length = static_cast<size_t>(PQgetlength(answer_.get(), row_, column));
    scratch_.resize(static_cast<size_t>(columns()));
    std::string& own = scratch_[static_cast<size_t>(column)];
    if (KindOf(column) == Kind::kReal && length > 0) return own = RealText(RealNumber(column));
    return OwnBytes({text, length}, &own);
}

int64_t PostgresqlStatement::Number(int column) const {
    return HasField(column) ? strtoll(PQgetvalue(answer_.get(), row_, column), nullptr, 10) : 0;
}

double PostgresqlStatement::RealNumber(int column) const {
    return HasField(column) ? strtod(PQgetvalue(answer_.get(), row_, column), nullptr) : 0;
}

SqlStatement::Kind PostgresqlStatement::KindOf(int column) const {
    switch (PQftype(answer_.get(), column)) {
        case kInt2:
        case kInt4:
        case kInt8:
            return Kind::kInteger;
        case kFloat4:
        case kFloat8:
            return Kind::kReal;
        default:
            return Kind::kText;
    }
}

}  // namespace koli::host
