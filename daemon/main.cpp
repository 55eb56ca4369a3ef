// koliindexd: keeps the media databases in step with the shared folders.
#include <sys/stat.h>

#include <cstring>

#include "daemon/daemon.h"
#include "platform/kolisdk.h"

int main(int argc, char* argv[]) {
    umask(0);
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        KLIBCopyright();
        return 0;
    }
    koli::DaemonRun();
}
