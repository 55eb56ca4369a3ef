#include "tools/koliindexctl/command_line.h"

int main(int argc, char** argv) {
    return koli::ctl::CommandLineRun(argc, argv);
}
