#!/usr/bin/env bash
# run-suite.sh PROGRAM: runs a suite and keeps what it prints in test-results beside it, where ./test counts the tests.
set -u -o pipefail
results="$(dirname "$1")/test-results"
log="$results/$(basename "$1").log"
mkdir -p "$results"
"$1" 2>&1 | tee "$log"
code="${PIPESTATUS[0]}"
# A crash leaves no line for the test that it came in.
if [[ $code -ne 0 ]] && ! grep -q '^\[  FAILED  \] .*([0-9]* ms)$' "$log"; then
    printf '[  FAILED  ] %s ended with code %d (0 ms)\n' "$(basename "$1")" "$code" | tee -a "$log"
fi
exit "$code"
