// The callers' SQL texts are written for PostgreSQL; this makes them mean the same on SQLite.
#pragma once

#include <string>
#include <string_view>

namespace koli::host {

/// How a truth value may be written in a text that is meant for a boolean column.
inline constexpr std::string_view kTrueForms[] = {"t", "true", "y", "yes", "on", "1"};
inline constexpr std::string_view kFalseForms[] = {"f", "false", "n", "no", "off", "0"};

/// Translates one statement, or a piece of one such as a WHERE condition:
/// - a backslash in a LIKE pattern escapes the next character: each literal that directly follows LIKE gets
///   " ESCAPE '\'", unless it has an ESCAPE already.  A literal pattern with an ESCAPE still uses an index.
/// - a truth value that is compared with, or assigned to, a boolean column (public, enabled, is_subdir) may
///   be written as 'true', 'yes', '1', true, ...: it becomes the 't' or 'f' that the column holds.  What an
///   INSERT gives by position is put right by the table's triggers.
/// - strpos is called instr.
/// Quoted texts, quoted names and comments are never looked into.  All else is copied as it is.
std::string ToSqliteText(std::string_view text);

}  // namespace koli::host
