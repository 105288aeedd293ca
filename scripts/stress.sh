#!/usr/bin/env bash
# Builds the stress programs, plain and with the sanitizers that they need, and runs them all: about five minutes on two
# cores. Each prints one line; logs and damaged models lie in build/stress.
#
#   scripts/stress.sh [MINUTES [MODELS]]    minutes of audio (600) and damaged models (10000)
set -euo pipefail

readonly root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly minutes="${1:-600}" models="${2:-10000}" build="$root/build/stress"
readonly copies="$build/damaged"
result=0

say() { printf 'stress: %s\n' "$*"; }

# build FOLDER PRESET TARGET...
build() {
    local folder="$1" preset="$2"
    shift 2
    say "building $folder"
    cmake --preset "$preset" -B "$folder" -DTAVRIN_BUILD_STRESS=ON -DTAVRIN_BUILD_TOOLS=OFF \
        -DTAVRIN_BUILD_EXAMPLES=OFF >/dev/null
    cmake --build "$folder" --parallel "$(nproc)" --target "$@" >/dev/null
}

# run FOLDER PROGRAM ARGUMENT...
run() {
    local program="$1/tests/stress/$2" log="$build/$2.log" start=$SECONDS state=passed
    shift 2
    "$program" "$@" >"$log" 2>&1 || { state="FAILED, see $log"; result=1; }
    say "$(grep -E '^[a-z_]+: ' "$log" || basename "$program"), $((SECONDS - start)) s: $state"
}

# The same damage every time: flipped bits, other bytes, insertions, truncation.
damage() {
    rm -rf "$copies"
    mkdir -p "$copies"
    perl -e '
        my ($count, $out, @models) = @ARGV;
        srand 1;
        for my $i (0 .. $count - 1) {
            my ($path, $name) = $models[$i % @models] =~ m{^(.*/(.*))$};
            open my $in, "<:raw", $path or die "$path: $!";
            my $bytes = do { local $/; <$in> };
            for (0 .. rand 1.5) {
                my ($at, $kind) = (int rand length $bytes, int rand 16);
                if ($kind == 0) { substr($bytes, $at) = "" }
                elsif ($kind == 1) { substr($bytes, $at, 0) = pack "C*", map { rand 256 } 0 .. rand 16 }
                elsif ($kind < 9) { vec($bytes, 8 * $at + rand 8, 1) ^= 1 }
                else { vec($bytes, $at, 8) = rand 256 }
            }
            open my $file, ">:raw", sprintf "%s/%05d_%s", $out, $i, $name or die "$out: $!";
            print $file $bytes;
        }' "$models" "$copies" "$root"/tests/models/{passthrough,six_stems}.onnx "$root/models/centre.onnx" \
        "$root"/tests/models/*.onnx
}

# try_models LOG COPY...: a crash costs one process; the next one goes on behind the culprit. LOG gets the outcomes.
try_models() {
    local log="$1" copy done_here status blamed
    shift
    : >"$log"
    while [ $# -gt 0 ]; do
        status=0
        (cd "$copies" && "$root/build/stress-asan/tests/stress/damaged_models" "${@:1:100}") \
            >/dev/null 2>"$log.batch" || status=$?
        grep '^it ' "$log.batch" >>"$log" || true
        done_here=$(grep -c '^copy ' "$log.batch" || true)
        copy=$(grep '^copy ' "$log.batch" | tail -n 1)
        # Whose frame comes first in the report, the sanitizer's and the system's apart?
        blamed=$(grep -E '^ +#[0-9]+ ' "$log.batch" | grep -m 1 -oE 'libonnxruntime|/damaged_models' || true)
        if [ "$status" = 142 ]; then
            echo "it takes too long: $copy" >>"$log"
        elif [ "$status" != 0 ] && [ "$blamed" = libonnxruntime ]; then
            echo "it crashes in the runtime: $copy" >>"$log"
        elif [ "$status" != 0 ]; then
            echo "it crashes in our code: $copy" >>"$log"
            cp "$log.batch" "$log.${copy#copy }"
        fi
        [ "$done_here" -gt 0 ] || { echo "it crashes in our code: before the first copy" >>"$log"; break; }
        shift "$done_here"
    done
}

cd "$root"
build "$build" release tavrin_stress
build "$root/build/stress-tsan" tsan eight_threads
build "$root/build/stress-asan" asan damaged_models

run "$build" long_stream "$minutes"
run "$root/build/stress-tsan" eight_threads

damage
# What the sanitizer would stop at is refused as the system would: with a null pointer.
export ASAN_OPTIONS=symbolize=0:handle_abort=1:allocator_may_return_null=1:max_allocation_size_mb=4096
export UBSAN_OPTIONS=symbolize=0:print_stacktrace=1
start=$SECONDS
mapfile -t files < <(cd "$copies" && ls)
readonly half=$((${#files[@]} / 2))
try_models "$build/damaged_1" "${files[@]:0:half}" &
try_models "$build/damaged_2" "${files[@]:half}"
wait
summary=$(cat "$build"/damaged_[12] | cut -d: -f1 | sort | uniq -c | awk '{ $1 = $1; printf "%s%s", sep, $0; sep = ", " }')
say "damaged_models: $summary, $((SECONDS - start)) s"
! grep -h 'in our code' "$build"/damaged_[12] || result=1
exit $result
