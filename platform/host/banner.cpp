#include <cstdio>

#include "platform/kolisdk.h"

extern "C" void KLIBCopyright(void) {
    printf("koliindexd %s\n%s\n", KOLI_VERSION, KOLI_PURPOSE);
}
