// The fuzz targets' bodies, shared by the libFuzzer binaries and the
// regression test that replays fuzz/regressions/<target>/ in the normal
// suite. Each takes any bytes and returns 0; a defect shows as a sanitizer
// report or an abort.
#ifndef QMKV_FUZZ_FUZZ_ENTRIES_H_
#define QMKV_FUZZ_FUZZ_ENTRIES_H_

#include <stddef.h>
#include <stdint.h>

namespace qmkv_fuzz {

using Entry = int (*)(const uint8_t *data, size_t size);

// The demuxer core over the bytes: every query, every frame, every seek mode.
int fuzzCore(const uint8_t *data, size_t size);
// The plug-in as the framework drives it.
int fuzzPlugin(const uint8_t *data, size_t size);
// The codec configuration parsers, for every code the plug-in accepts.
int fuzzConfig(const uint8_t *data, size_t size);
// The EBML readers over memory and through the file-access layer.
int fuzzEbml(const uint8_t *data, size_t size);

// The entry of a target by its binary's name ("fuzz_core", ...), or null.
Entry entryByName(const char *name);

// Fuzzing seeks each stream to two of six targets per mode, turned by an
// input byte; a replay of given inputs takes every target in every mode,
// so that a reproducer reaches whatever it once reached.
void seekEverywhere(bool on);

// Routes the Android log to nowhere while still formatting every message,
// so that fuzzing is not slowed by output but bad format arguments still
// get read.
void silenceLogs();

}  // namespace qmkv_fuzz

#endif  // QMKV_FUZZ_FUZZ_ENTRIES_H_
