// koliindexserve: shows the library in a browser ("koliindexctl serve").
#include "tools/koliindexserve/serve.h"

int main(int argc, char** argv) {
    return koli::serve::ServeRun(argc, argv);
}
