// The qmkv_bench_copies build: memcpy, memmove, mempcpy (and their
// fortified forms) are interposed so that the bytes every reader copies in
// user space can be counted. The executable is linked with -rdynamic, so the
// shared libraries (libavformat, libavutil, libwebm, libutils) bind to these
// definitions too. Copies glibc makes internally are not seen. The host
// source's copies out of the mapped file are counted too: they are the
// readers' reads.
#include <dlfcn.h>
#include <stddef.h>
#include <stdint.h>

#include "bench_io.h"

namespace {

bool gOn = false;
uint64_t gBytes = 0;
uint64_t gCalls = 0;

using CopyFn = void *(*)(void *, const void *, size_t);
CopyFn gMemcpy = nullptr;
CopyFn gMemmove = nullptr;
bool gResolving = false;

// Used only while the real functions are being looked up.
void *slowMove(void *d, const void *s, size_t n) {
    volatile unsigned char *dst = static_cast<volatile unsigned char *>(d);
    const volatile unsigned char *src = static_cast<const volatile unsigned char *>(s);
    if (dst < src) {
        for (size_t i = 0; i < n; ++i) dst[i] = src[i];
    } else {
        for (size_t i = n; i > 0; --i) dst[i - 1] = src[i - 1];
    }
    return d;
}

bool resolve() {
    if (gMemcpy != nullptr) return true;
    if (gResolving) return false;
    gResolving = true;
    CopyFn c = reinterpret_cast<CopyFn>(dlsym(RTLD_NEXT, "memcpy"));
    CopyFn m = reinterpret_cast<CopyFn>(dlsym(RTLD_NEXT, "memmove"));
    gMemmove = m;
    gMemcpy = c;
    gResolving = false;
    return gMemcpy != nullptr && gMemmove != nullptr;
}

inline void count(size_t n) {
    if (gOn) {
        gBytes += n;
        gCalls++;
    }
}

}  // namespace

extern "C" {

void *memcpy(void *d, const void *s, size_t n) {
    count(n);
    return resolve() ? gMemcpy(d, s, n) : slowMove(d, s, n);
}

void *memmove(void *d, const void *s, size_t n) {
    count(n);
    return resolve() ? gMemmove(d, s, n) : slowMove(d, s, n);
}

void *mempcpy(void *d, const void *s, size_t n) {
    count(n);
    void *r = resolve() ? gMemcpy(d, s, n) : slowMove(d, s, n);
    return static_cast<char *>(r) + n;
}

void *__memcpy_chk(void *d, const void *s, size_t n, size_t) { return memcpy(d, s, n); }
void *__memmove_chk(void *d, const void *s, size_t n, size_t) { return memmove(d, s, n); }
void *__mempcpy_chk(void *d, const void *s, size_t n, size_t) { return mempcpy(d, s, n); }

}  // extern "C"

namespace qmkvbench {
void copyCountingEnable(bool on) { gOn = on; }
uint64_t copyCountedBytes() { return gBytes; }
uint64_t copyCountedCalls() { return gCalls; }
bool copyCountingAvailable() { return true; }
}  // namespace qmkvbench
