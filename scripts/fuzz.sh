#!/usr/bin/env bash
# Runs each libFuzzer target of the "fuzz" preset on a copy of its seed corpus, for SECONDS each
# (default 20), one after the other. Fails on any crash, hang, leak or sanitizer report; the
# reproducer is left in the working directory WORK (default: a temporary one, removed on success).
#   scripts/fuzz.sh [SECONDS] [TARGET...]
# The build (cmake --preset fuzz && cmake --build --preset fuzz) must be there.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
shift || true
targets=("$@")
[ ${#targets[@]} -eq 0 ] && targets=(lpd_dialogue_fuzz control_file_fuzz restart_files_fuzz
                                      reg_hive_fuzz status_query_fuzz block_c1_fuzz
                                      block_c2_fuzz block_k1_fuzz extended_session_fuzz
                                      secured_accept_fuzz)
bin=build/fuzz/bin
work=${WORK:-$(mktemp -d /tmp/vorlix-fuzz.XXXXXX)}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

failed=0
for target in "${targets[@]}"; do
    echo "== fuzz: $target (${seconds} s)"
    mkdir -p "$work/$target/corpus" "$work/$target/artifacts"
    cp -n fuzz/corpus/"$target"/* "$work/$target/corpus/" 2>/dev/null || true
    dict=()
    [ -f "fuzz/$target.dict" ] && dict=(-dict="fuzz/$target.dict")
    if ! "$bin/$target" "${dict[@]}" -max_total_time="$seconds" -timeout=25 -rss_limit_mb=2048 \
            -max_len=65536 -print_final_stats=1 -artifact_prefix="$work/$target/artifacts/" \
            "$work/$target/corpus" >"$work/$target/log" 2>&1; then
        echo "FAILED: $target (log and reproducer in $work/$target)"
        tail -n 40 "$work/$target/log"
        failed=1
        continue
    fi
    grep -E '^stat::(number_of_executed_units|new_units_added|peak_rss_mb)|cov:' "$work/$target/log" |
        tail -n 4
done
[ "$failed" -eq 0 ] && [ -z "${WORK:-}" ] && rm -rf "$work"
exit $failed
