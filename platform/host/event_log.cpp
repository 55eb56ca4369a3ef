#include <syslog.h>

#include "platform/kolisdk.h"

namespace {

const char* TextOf(const char* argument) {
    return argument != nullptr ? argument : "";
}

}  // namespace

extern "C" int KOLILogSet1(int category, int level, unsigned event, const char* arg1, const char* arg2,
                           const char* arg3, const char* arg4) {
    syslog(LOG_WARNING, "event 0x%08X category %d level %d [%s] [%s] [%s] [%s]", event, category, level,
           TextOf(arg1), TextOf(arg2), TextOf(arg3), TextOf(arg4));
    return 0;
}
