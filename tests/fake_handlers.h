// Recorders in place of the format handlers and the photo library, for tests of the dispatch, the walk and
// the queue.
#pragma once

#include <map>
#include <string>

namespace koli::test {

/// What a recorded function returns, by its name; 0 when it is not listed.
extern std::map<std::string, int> handler_results;

/// Records a call in fake.calls ("IndexOnePath /a/b.mp3 1", with "(null)" for null) and returns its result.
int RecordCall(const char* function, const char* path, const std::string& rest = "");

}  // namespace koli::test
