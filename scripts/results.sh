# shellcheck shell=bash
# Read by ./test: runs suites and counts what they came to. The caller is at the project's root.

passed=0
failed=0
skipped=0
is_strict=no

# count_results FOLDER: adds up what the tests of the last run in a build folder came to.
count_results() {
    local results="$1/test-results" p f s
    read -r p f s < <(cat "$results"/*.log 2>/dev/null | awk '
        /^\[       OK \] /                         { p++ }
        /^\[  FAILED  \] .*\([0-9]+ ms\)$/         { f++ }
        /^\[  SKIPPED \] .*\([0-9]+ ms\)$/         { s++ }
        END { print p + 0, f + 0, s + 0 }')
    passed=$((passed + p))
    failed=$((failed + f))
    skipped=$((skipped + s))
}

# Prints "test: reason" for every skipped test.
list_skips() {
    cat "$1"/test-results/*.log 2>/dev/null | awk '
        /^\[ RUN      \] /                  { reason = ""; take = 0 }
        take && reason == ""                { reason = $0; take = 0 }
        /: Skipped$/                        { take = 1 }
        /^\[  SKIPPED \] .*\([0-9]+ ms\)$/  { name = $0; sub(/^\[  SKIPPED \] /, "", name); sub(/ \([0-9]+ ms\)$/, "", name)
                                              print "skipped " name ": " reason }'
}

# run_failed_again FOLDER: what failed beside others runs once more by itself. A suite that passes then is named as
# unsteady, with what failed in it: its fault is one of timing, in the test or in the program, and wants mending.
run_failed_again() {
    local folder="$1" again="$1/test-results/ctest-again.txt" log code
    mkdir -p "$folder/test-results/first"
    grep -lE '^\[  FAILED  \] ' "$folder"/test-results/*.log 2>/dev/null | xargs --no-run-if-empty -I{} cp {} "$folder/test-results/first"
    printf '\nOnce more, what failed:\n'
    ctest --test-dir "$folder" --rerun-failed --output-on-failure 2>&1 | tee "$again"
    code="${PIPESTATUS[0]}"
    mv "$again" "$folder/test-results/ctest.txt"
    for log in "$folder"/test-results/first/*.log; do
        [[ -e $log ]] || continue
        grep -E '^\[  FAILED  \] .*\([0-9]+ ms\)$' "$log" | sed 's/^\[  FAILED  \] /unsteady: failed the first time: /'
    done
    return "$code"
}

# run_suites FOLDER CTEST_ARGUMENTS...: runs suites side by side where they allow it, each with a log of its own.
run_suites() {
    local folder="$1" crashed
    shift
    rm -rf "$folder/test-results"
    mkdir -p "$folder/test-results"
    # Suites are counted in quarters of a processor: four that mostly wait share one.
    ctest --test-dir "$folder" -j "$((4 * $(nproc)))" --no-tests=error --output-on-failure "$@" 2>&1 | tee "$folder/test-results/ctest.txt"
    local code="${PIPESTATUS[0]}"
    if [[ $code -ne 0 ]]; then
        run_failed_again "$folder"
        code=$?
    fi
    count_results "$folder"
    list_skips "$folder"
    # A suite that ran out of time has no line for the test that did it.
    crashed="$(grep -cE '\*\*\*(Timeout|Not Run)' "$folder/test-results/ctest.txt")"
    failed=$((failed + crashed))
    [[ $code -ne 0 && $failed -eq 0 ]] && failed=1
}

# run_in_turn RUNNER NAME...: suites one after another, whose tests are seen as they run.
run_in_turn() {
    local runner="$1" name code=0
    rm -rf build/test-results
    for name in "${@:2}"; do
        "$runner" "build/$name" || code=1
    done
    count_results build
    list_skips build
    [[ $code -ne 0 && $failed -eq 0 ]] && failed=1
}

# Ends with 0 when something passed and nothing failed; with --strict, nothing may have been skipped either.
finish() {
    local code=1
    [[ $failed -eq 0 && $passed -gt 0 ]] && code=0
    if [[ $is_strict == yes && $skipped -gt 0 ]]; then
        printf 'A skipped test counts as a failure here.\n'
        code=1
    fi
    printf '%d passed, %d failed, %d skipped\n' "$passed" "$failed" "$skipped"
    exit $code
}
