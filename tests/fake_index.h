// Recorders in place of the dispatch and the walk.  For one source file of a test program.
#pragma once

#include "index/directory.h"
#include "index/index.h"
#include "tests/fake_platform.h"

int koli::IndexOnePath(const KnownPath& path, int mode) {
    return test::Record(__func__, path.text(), mode);
}
void koli::IndexFilesBelow(const char* directory) {
    test::Record(__func__, directory);
}
void koli::IndexTreeAgain(const char* directory) {
    test::Record(__func__, directory);
}
int koli::IndexWalk(const KnownPath& path, int mode, int types) {
    return test::Record(__func__, path.text(), mode, types);
}
