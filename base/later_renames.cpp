#include "base/later_renames.h"

namespace koli {
namespace {

LaterRenames knows_renamed = nullptr;
LaterRenames knows_brought = nullptr;

}  // namespace

void LaterRenamesSet(LaterRenames renames, LaterRenames brings) {
    knows_renamed = renames;
    knows_brought = brings;
}

bool IsRenamedLater(const char* path) {
    return knows_renamed != nullptr && knows_renamed(path);
}

bool IsBroughtLater(const char* path) {
    return knows_brought != nullptr && knows_brought(path);
}

}  // namespace koli
