// What a server needs before it can keep a library, shown first and made on request.
#pragma once

#include <string>
#include <vector>

namespace koli::host {

struct ServerStep {
    std::string kind;  // for people: "role", "database", "right", "schema", "view"
    std::string name;
    bool is_missing = true;
};

struct ServerPlan {
    std::vector<ServerStep> steps = {};  // in the order in which they are made
    std::string error = {};              // a sentence: why it cannot be, or what has failed; '' = all is well
    bool is_made = false;                // what was missing has been made
    // What the settings say then:
    std::string place = {};   // as which role the daemon writes
    std::string reader = {};  // the role as which everything else reads
};

}  // namespace koli::host
