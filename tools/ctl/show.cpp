#include "tools/ctl/show.h"

#include "tools/ctl/entry.h"
#include "tools/ctl/output.h"
#include "tools/ctl/request_line.h"
#include "tools/ctl/store_reader.h"

namespace koli::ctl {

int Show(const Context& context, const std::string& given) {
    const std::string path = DaemonPath(given);
    if (given.empty() || path.empty()) {
        Complain("%s: %s", given.empty() ? "(empty)" : given.c_str(), PathRefusal(""));
        return kExitUsage;
    }
    StoreReader store;
    if (!OpenStore(context, &store)) return kExitDatabase;
    const std::vector<Section> sections = EntryOf(store, path);
    if (const int code = StoreResult(store, kExitDone); code != kExitDone) return code;
    if (sections.empty()) {
        Complain("nothing is stored for %s", path.c_str());
        return kExitDifferences;
    }
    PrintSections(sections, context.json);
    return kExitDone;
}

}  // namespace koli::ctl
