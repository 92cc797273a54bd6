#!/usr/bin/env bash
# Sets up, builds and runs the whole test suite, plainly and under
# AddressSanitizer + UndefinedBehaviorSanitizer, the ARM builds under qemu,
# the concurrency tests under ThreadSanitizer, and the probe over the corpus
# under valgrind; fails when any test fails or when no test ran.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh

run_suite() {
  local dir=$1
  shift
  scripts/build.sh "$dir" "$@"
  (cd "$dir" && ctest --output-on-failure -j"$(nproc)" | tee ctest.log)
  grep -qE '^100% tests passed, 0 tests failed out of [1-9]' "$dir/ctest.log"
}

run_suite build
scripts/cross.sh build  # 32- and 64-bit ARM: -Werror builds, the core's output under qemu equals the native
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build-asan -DQMKV_SANITIZE=ON -DQMKV_CORPUS_DIR="$PWD/build/corpus"

# Tracks read from one thread each, under ThreadSanitizer.
cmake -S . -B build-tsan -DQMKV_TSAN=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQMKV_CORPUS_DIR="$PWD/build/corpus" >/dev/null
cmake --build build-tsan --target qmkv_tests -j"$(nproc)" >/dev/null
QMKV_CORPUS_DIR="$PWD/build/corpus" TSAN_OPTIONS=halt_on_error=1 \
  build-tsan/tests/qmkv_tests --gtest_filter='*Concurrency*' --gtest_brief=1

scripts/valgrind.sh build
scripts/fuzz.sh 45  # libFuzzer targets: regressions replayed, then 45 s each, two at a time
