// The program that has small pictures made, for koliindexserve, which starts it: its descriptors 3 and 4 are
// the socket and the memory that both share.  Ends when the socket's other end is closed, and
// at once when they are not there.
#include <unistd.h>

#include "tools/serve/maker/maker.h"

int main() {
    return koli::serve::MakerRun(STDERR_FILENO + 1, STDERR_FILENO + 2);
}
