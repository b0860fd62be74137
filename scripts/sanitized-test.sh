#!/usr/bin/env bash
# Runs one suite of the sanitized build (BRIVON_SANITIZE=ON) and fails it when any process of the
# suite wrote a sanitizer report: the suite itself, or a program it started, such as the real
# executable of an end-to-end test, whose own exit status the suite may never look at.
#   sanitized-test.sh <leaks|noleaks> <suppression file> <program> [arguments...]
set -u
leaks="$1" suppressions="$2"
shift 2
reports="$(mktemp -d "${TMPDIR:-/tmp}/sanitizer-reports.XXXXXX")"
detect_leaks=0 unwind=""
# With leak checks on, allocations are traced through frames of libraries built without frame
# pointers (Qt), so that a report shows the whole way to the allocation and a suppression can name
# a Qt function; this costs the window suites about twice their time.
[ "$leaks" = leaks ] && detect_leaks=1 unwind=":fast_unwind_on_malloc=0"
# Reports go to files named after each process's pid, so that children's reports are found too.
export ASAN_OPTIONS="log_path=$reports/asan:detect_leaks=$detect_leaks:check_initialization_order=1:strict_init_order=1:detect_stack_use_after_return=0$unwind${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="log_path=$reports/ubsan:print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
export LSAN_OPTIONS="suppressions=$suppressions:print_suppressions=0${LSAN_OPTIONS:+:$LSAN_OPTIONS}"

"$@"
status=$?
found=0
for report in "$reports"/*; do
    [ -e "$report" ] || continue
    found=1
    echo "==== sanitizer report: $(basename "$report")"
    cat "$report"
done
rm -rf "$reports"
if [ "$found" -eq 1 ]; then
    echo "FAIL: a process of this suite wrote a sanitizer report (see above)"
    exit 1
fi
exit "$status"
