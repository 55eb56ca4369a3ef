// The libraries that one database on a server keeps, each in a schema of its own, and all of them together.
//
// Other programs find a view for each table in the schema `libraries`, with the column `library` in front,
// once that schema has been made.  Such a view names the schemas that it reads: one that is dropped takes the
// views along, never the other way round, and whoever opens a library to write next makes them again.
#pragma once

#include <string>
#include <vector>

namespace koli::host {

class Postgresql;

/// Stands for all libraries where a library's name is asked for.
inline constexpr const char kEveryLibrary[] = "*";

bool HasControlCharacters(const std::string& text);

/// Why no library can have this name, as a sentence; "" when one can.
std::string LibraryNameRefusal(const std::string& name);

/// As a name in a statement.
std::string QuotedName(const std::string& name);

/// The libraries that this user may read, by their names.
std::vector<std::string> LibraryNames(Postgresql& sql);

/// A table with the query of its rows in all libraries that this user may read, `library` in front.  Columns
/// that one of them lacks are left out.
struct LibraryUnion {
    std::string table;
    std::string text;
    std::string sum;         // of the text
    bool is_viewed = false;  // the table's view shows just this
};
std::vector<LibraryUnion> LibraryUnions(Postgresql& sql);

/// The schema of the views, and whether it is there.
inline constexpr const char kViewSchema[] = "libraries";
bool HasViewSchema(Postgresql& sql);

/// Tables whose view is not there, or does not show the libraries that there are.
std::vector<LibraryUnion> ViewsDue(Postgresql& sql);

/// Makes the views that are due in their schema, if there is that, in one transaction.  False when that
/// fails: who may not make them can do without, and so can who has made other views of them.
bool ViewsRefresh(Postgresql& sql);

}  // namespace koli::host
