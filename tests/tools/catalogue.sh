#!/usr/bin/env bash
# Separates a catalogue as docs/catalogue.md says, on two local workers of which one is killed in the middle of a song.
# In the end every song was separated once, and nothing was lost.
#
#   catalogue.sh TAVRIN_SEPARATE MODEL
set -euo pipefail

readonly tool="$1" model="$2"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

fail() { printf 'catalogue: %s\n' "$*" >&2; exit 1; }
# expect COUNT FILE PATTERN: so many lines of the file match.
expect() { [ "$(grep -cE "$3" "$2" || true)" = "$1" ] || fail "not $1 times '$3' in: $(cat "$2")"; }

# song FILE SECONDS: silence, in a WAV whose header leaves the length open.
song() {
    printf 'RIFF\377\377\377\377WAVEfmt \20\0\0\0\1\0\1\0\104\254\0\0\210\130\1\0\2\0\20\0data\377\377\377\377' >"$1"
    head -c $(($2 * 88200)) /dev/zero >>"$1"
}

# Every start of a worker leaves a line "PID SONG".
run() {
    parallel --joblog run.joblog --resume-failed --retries 2 --jobs 2 --quote \
        sh -c 'echo "$$ $2" >>starts; exec "$0" "$2" --model "$1" -o "results/$3" --json --quiet' \
        "$tool" "$model" {} {//} :::: songs.txt >>songs.jsonl
}

mkdir a b
for name in a/intro a/long b/intro b/'two words'; do song "$name.wav" 2; done
song a/long.wav 400
echo broken >b/bad.wav
find ./* -name '*.wav' | sort >songs.txt

run 2>messages &
until [ -s results/a/long/.passthrough.rest.wav.part ]; do sleep 0.02; done
kill -KILL "$(awk '/a\/long/ { print $1 }' starts)"
! wait $! || fail "the broken song did not count as a failure"
expect 4 songs.jsonl '"done"'
expect 1 songs.jsonl '"failed".*bad.wav'
expect 2 starts 'a/long'
expect 7 starts .

# The next run takes up what failed and what is new, and leaves alone the rest.
song b/bad.wav 2
song b/new.wav 2
echo b/new.wav >>songs.txt
run
expect 6 songs.jsonl '"done"'
expect 0 songs.jsonl '"skipped"'
expect 9 starts .
[ "$(find results -type f | wc -l)" = 18 ] || fail "not 18 results and records: $(find results)"
