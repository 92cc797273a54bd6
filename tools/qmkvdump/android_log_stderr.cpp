// The Android log for the static qmkvdump that scripts/cross.sh builds for
// ARM, where no liblog is installed: each line goes to stderr with its
// priority and tag. The native build links Debian's liblog instead.
#include <stdarg.h>
#include <stdio.h>

#include <android/log.h>

extern "C" int __android_log_print(int prio, const char *tag, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    fprintf(stderr, "%d %s: ", prio, tag != nullptr ? tag : "");
    const int n = vfprintf(stderr, fmt, args);
    va_end(args);
    fputc('\n', stderr);
    return n;
}
