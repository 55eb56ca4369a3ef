#include "base/later_renames.h"

namespace koli {
namespace {

LaterRenames later_renames = nullptr;

}  // namespace

void LaterRenamesSet(LaterRenames knows) {
    later_renames = knows;
}

bool IsRenamedLater(const char* path) {
    return later_renames != nullptr && later_renames(path);
}

}  // namespace koli
