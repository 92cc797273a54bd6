#!/usr/bin/env bash
# Runs the probe over every corpus file under valgrind memcheck, through the
# plug-in and through the core, reading every sample and seeking; fails on
# any memory error or definitely lost block.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
scripts/setup.sh valgrind
corpus="$build/corpus"
[ -f "$corpus/manifest.txt" ] || bash tests/corpus/make_corpus.sh "$corpus" >/dev/null
runs=0
while read -r name _; do
  for mode in "" "--core"; do
    for extra in "--packets" "--seek-count 20"; do
      # shellcheck disable=SC2086
      valgrind -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite \
        "$build/qmkvprobe" $mode $extra "$corpus/$name" >/dev/null 2>"$build/valgrind.log" || {
        rc=$?
        if [ "$rc" -eq 99 ]; then
          echo "valgrind: errors in qmkvprobe $mode $extra $name" >&2
          cat "$build/valgrind.log" >&2
          exit 1
        fi
      }
      runs=$((runs + 1))
    done
  done
done < "$corpus/manifest.txt"
echo "valgrind: $runs probe runs, 0 errors"
