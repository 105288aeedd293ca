#!/usr/bin/env bash
# Builds the fuzzers with clang and runs them side by side. What they find lies in build/fuzz/found.
#
#   scripts/fuzz.sh [SECONDS]    300 seconds each by default
set -euo pipefail

readonly root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly seconds="${1:-300}" build="$root/build/fuzz" found="$root/build/fuzz/found"

say() { printf 'fuzz: %s\n' "$*"; }

cd "$root"
say "building"
cmake --preset clang -B "$build" -DTAVRIN_BUILD_FUZZERS=ON -DTAVRIN_SANITIZE=fuzzer-no-link,address,undefined \
    -DTAVRIN_BUILD_TOOLS=OFF -DTAVRIN_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$build" --parallel "$(nproc)" --target tavrin_fuzzers >/dev/null

# The corpus stays, so that the next run begins where this one ended.
declare -A process
for fuzzer in fuzz_stream_engine fuzz_onnx_file; do
    mkdir -p "$build/corpus/$fuzzer" "$found"
    "$build/tests/fuzz/$fuzzer" -max_total_time="$seconds" -max_len=4096 -artifact_prefix="$found/$fuzzer-" \
        "$build/corpus/$fuzzer" >"$build/$fuzzer.log" 2>&1 &
    process[$fuzzer]=$!
done
result=0
for fuzzer in "${!process[@]}"; do
    if wait "${process[$fuzzer]}"; then
        say "$fuzzer: $(tail -n 1 "$build/$fuzzer.log"), nothing found"
    else
        result=1
        say "$fuzzer: FAILED, see $build/$fuzzer.log and $found"
    fi
done
exit $result
