#!/usr/bin/env bash
# run-suite.sh PROGRAM: runs a suite in its own folder, so that whoever starts it finds the pictures of failures in
# test-output there, and keeps what it prints in test-results, where ./test counts the tests.
set -u -o pipefail
name="$(basename "$1")"
cd "$(dirname "$1")" || exit 1
log="test-results/$name.log"
mkdir -p test-results
"$PWD/$name" 2>&1 | tee "$log"
code="${PIPESTATUS[0]}"
# A crash leaves no line for the test that it came in.
if [[ $code -ne 0 ]] && ! grep -q '^\[  FAILED  \] .*([0-9]* ms)$' "$log"; then
    printf '[  FAILED  ] %s ended with code %d (0 ms)\n' "$name" "$code" | tee -a "$log"
fi
exit "$code"
