// The libFuzzer binary of one target; QMKV_FUZZ_TARGET names its body.
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "fuzz/fuzz_entries.h"

namespace {
qmkv_fuzz::Entry gEntry;

// Files named on the command line (not corpus folders) are replayed, one
// by one: reproducers and regression inputs.
bool replaysFiles(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        struct stat st;
        if (argv[i][0] != '-' && stat(argv[i], &st) == 0 && S_ISREG(st.st_mode)) return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    gEntry = qmkv_fuzz::entryByName(QMKV_FUZZ_TARGET);
    if (gEntry == nullptr) {
        fprintf(stderr, "no fuzz entry %s\n", QMKV_FUZZ_TARGET);
        abort();
    }
    qmkv_fuzz::seekEverywhere(replaysFiles(*argc, *argv));
    qmkv_fuzz::silenceLogs();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) { return gEntry(data, size); }

// Any undefined behaviour not listed in a suppression file ends the run.
extern "C" const char *__ubsan_default_options() { return "halt_on_error=1:print_stacktrace=1"; }
