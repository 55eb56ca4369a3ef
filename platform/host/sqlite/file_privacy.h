// Who may read the files of a database.
#pragma once

#include <string>

namespace koli::host {

/// Takes a database, its log and the log's index from others than their owner and group when this user owns
/// them, as those that an earlier version has made, and logs it.  A file that is no plain one of one name is
/// left alone: in a folder that others may write to it may stand for any file of the machine.
void KeepFromOthers(const std::string& database);

}  // namespace koli::host
