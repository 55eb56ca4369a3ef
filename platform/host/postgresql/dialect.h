// The layer's SQL texts in the server's form.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/sql/save_form.h"

namespace koli::host {

enum class Command {
    kBegin,
    kCommit,
    kRollback,
    kSavepoint,  // also RELEASE and ROLLBACK TO
    kWrite,      // INSERT, UPDATE, DELETE
    kOther
};

/// A text, and what can be told of it without the server.
struct ServerStatement {
    std::string text;
    std::vector<int> numbers = {};  // at [n]: that of the parameter ?n in the text, 0 = it is not there
    int parameters = 0;             // that are there
    Command command = Command::kOther;
    std::string table = {};  // that a kWrite changes
};

/// Whether a name stands in the text, outside of quotes.
bool HoldsWord(std::string_view text, std::string_view word);

/// The condition that a path holds bytes that are no UTF-8; the schema has an index for it.
inline constexpr const char kIsMapped[] = R"(path ~ '[\uF780-\uF7FF]')";

/// Parameters ?N become $1, $2 ... outside of quoted texts, quoted names and comments: the server wants to
/// know the type of each up to the last.  Invalid bytes are mapped (bytes.h).
ServerStatement ToServer(std::string_view text);

/// The statement that saves a row.  The row that is there is asked first: an INSERT that meets it would lock
/// and so write it, changed or not.
std::string SaveTextOf(const SaveForm& form);

/// The query behind Sql::PathsInside, with the parameters "FOLDER/" and "FOLDER0".
std::string FolderRowsTextOf(const char* table);

}  // namespace koli::host
