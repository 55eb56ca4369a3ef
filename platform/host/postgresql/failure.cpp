#include "platform/host/postgresql/failure.h"

#include <algorithm>
#include <iterator>

namespace koli::host {
namespace {

// What has nothing to do with the statement: the connection, the server's room and memory, an operator.
constexpr std::string_view kPassingClasses[] = {"08", "53", "57", "58"};
constexpr std::string_view kPassing[] = {
    "25006",  // a standby, or one that has become read-only
    "25P02",  // in a transaction that has failed already
    "25P03",  // idle for too long
    "25P04",  // the transaction took too long
    "40001",  // serialization
    "40P01",  // deadlock
    "55006",  // in use
};
constexpr size_t kLineMax = 1000;
constexpr std::string_view kLock = "55P03";
constexpr std::string_view kDenied = "42501";
constexpr std::string_view kNoTable = "42P01";
constexpr std::string_view kNoSchema = "3F000";
constexpr std::string_view kDamageClass = "XX00";  // XX001, XX002: a page, an index

template <size_t N>
bool IsOneOf(std::string_view word, const std::string_view (&words)[N]) {
    return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

}  // namespace

std::string OneLine(std::string_view message) {
    std::string line(message.substr(0, kLineMax));
    std::ranges::replace_if(
        line, [](unsigned char c) { return c < ' ' || c == 0x7F; }, ' ');
    line.erase(line.find_last_not_of(' ') + 1);
    return line.empty() ? "?" : line;
}

SqlFailure LostFailure(std::string_view reason) {
    return {.reason = OneLine(reason), .is_of_file = true, .passes = true};
}

SqlFailure ServerFailure(std::string_view state, std::string_view message) {
    const bool is_lock = state == kLock;
    const bool is_damage = state.starts_with(kDamageClass) && state != "XX000";
    // After these the session is gone, or reads only until another server is asked for.
    const bool is_of_session = state.starts_with("08") || state.starts_with("57P") || state.starts_with("25");
    return {.reason = OneLine(message),
            .is_lock = is_lock,
            .is_damage = is_damage,
            .is_denied = state == kDenied,
            .is_of_file = is_of_session,
            .is_missing = state == kNoTable || state == kNoSchema,
            .passes = is_lock || IsOneOf(state.substr(0, 2), kPassingClasses) || IsOneOf(state, kPassing)};
}

}  // namespace koli::host
