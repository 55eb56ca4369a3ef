#include "base/features.h"

namespace koli {

int support_vidora = 0;
int support_photo = 0;

}  // namespace koli
