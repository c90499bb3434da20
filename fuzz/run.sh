#!/bin/sh
# Runs libFuzzer targets for a set time each and summarises the runs.
#
#   fuzz/run.sh BUILD_DIR SECONDS JOBS [TARGET ...]
#
# BUILD_DIR holds the fuzz_<target> programs (built from fuzz/CMakeLists.txt with clang). Each
# target starts from its seed corpus fuzz/corpus/<target>/ and keeps what it learns in
# BUILD_DIR/corpus/<target>/ (so later runs go on from there); inputs that make it fail are
# written to BUILD_DIR/findings/<target>/ and its output to BUILD_DIR/logs/<target>.log. JOBS
# targets run at a time. Without TARGET names, every program in BUILD_DIR is run. The exit
# status is 1 when any target found something.
set -u
build=$1
seconds=$2
jobs=$3
shift 3
here=$(cd "$(dirname "$0")" && pwd)

if [ $# -eq 0 ]; then
    for program in "$build"/fuzz_*; do
        [ -x "$program" ] && set -- "$@" "${program##*/fuzz_}"
    done
fi

run_one() {
    target=$1
    mkdir -p "$build/corpus/$target" "$build/findings/$target" "$build/logs"
    "$build/fuzz_$target" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$build/findings/$target/" \
        "$build/corpus/$target" "$here/corpus/$target" >"$build/logs/$target.log" 2>&1
    echo $? >"$build/logs/$target.status"
}

running=0
for target in "$@"; do
    run_one "$target" &
    running=$((running + 1))
    if [ "$running" -ge "$jobs" ]; then
        wait
        running=0
    fi
done
wait

status=0
printf '%-14s %12s %10s %8s  %s\n' target executions coverage features result
for target in "$@"; do
    log="$build/logs/$target.log"
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
    last=$(grep -E '^#[0-9]+.*cov: ' "$log" | tail -n 1)
    cov=$(echo "$last" | sed -n 's/.*cov: \([0-9]*\).*/\1/p')
    ft=$(echo "$last" | sed -n 's/.*ft: \([0-9]*\).*/\1/p')
    if [ "$(cat "$build/logs/$target.status")" = 0 ]; then
        result=ok
    else
        result="FOUND: $(ls "$build/findings/$target" | head -n 3 | tr '\n' ' ')"
        status=1
    fi
    printf '%-14s %12s %10s %8s  %s\n' "$target" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$result"
done
exit $status
