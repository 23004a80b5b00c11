#!/usr/bin/env bash
# Runs each fuzzer for a set time, two at a time, on the seeds in tests/fuzz/seeds
# and a working corpus beside the fuzzers; prints the executions of each.
# Usage: fuzz.sh BIN_DIR SECONDS
set -uo pipefail
bin=$1
seconds=$2
seeds=$(cd "$(dirname "$0")/../tests/fuzz/seeds" && pwd)
# The fuzzers' own files (packages, archives) go to memory where it can.
[ -w /dev/shm ] && export TMPDIR=/dev/shm
run() {
    local name=$1 work="$bin/../fuzz-corpus/$1" log="$bin/../fuzz-$1.log"
    mkdir -p "$work" "$bin/../fuzz-findings"
    if "$bin/fuzz_$name" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$bin/../fuzz-findings/$name-" "$work" "$seeds/$name" >"$log" 2>&1; then
        echo "fuzz_$name: $(grep -o '^stat::number_of_executed_units: *[0-9]*' "$log" | grep -o '[0-9]*$') executions in ${seconds} s, no finding"
    else
        echo "fuzz_$name: FINDING, see $log"; tail -n 30 "$log"; return 1
    fi
}
export -f run
export bin seconds seeds
printf '%s\n' config unpack answers lmnames store | xargs -P 2 -I{} bash -c 'run {}'
