#include "photo/sweep_hold.h"

namespace koli {
namespace {

bool is_sweep_held = false;

}  // namespace

void ResyncSweepHold(bool is_held) {
    is_sweep_held = is_held;
}

bool IsResyncSweepHeld() {
    return is_sweep_held;
}

}  // namespace koli
