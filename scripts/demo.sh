#!/usr/bin/env bash
# Separates a song with the built command and says where the stems lie. Everything is written to demo/.
#
#   scripts/demo.sh BUILD_FOLDER         a recorded song whose guitar track is known, with a table of how near it came
#   scripts/demo.sh BUILD_FOLDER SONG    your own file
#
# DEMO_SONG=TITLE chooses another of the recorded songs, DEMO_MODEL=NAME another model.
set -euo pipefail

readonly root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly build="${1:?usage: scripts/demo.sh BUILD_FOLDER [SONG]}" song="${2:-}"
readonly out="$root/demo" songs="$root/.deps/songs/sectoid"
# First in the alphabet, and the one where the panning helps most: its guitars are wide, the others are not.
readonly title="${DEMO_SONG:-Escape from chaosland}" model="${DEMO_MODEL:-centre}"

say() { printf 'demo: %s\n' "$*"; }
fail() { printf 'demo: %s\n' "$*" >&2; exit 1; }
# separate SONG: the parts of one model a song, so the rest needs no other name.
separate() { "$build/tools/tavrin-separate" -o "$out" --name '{song}/{part}.{ext}' --model "$model" -- "$1"; }

for tool in tavrin-separate tavrin-demo-audio; do
    [ -x "$build/tools/$tool" ] || fail "$build/tools/$tool is missing: build first (make demo does it all)"
done

if [ -n "$song" ]; then
    separate "$song"
    say "listen to $model.wav and rest.wav there"
    exit
fi

"$root/scripts/setup.sh" songs
tracks="$songs/$title"
[ -f "$tracks/guitar.ogg" ] || fail "no song '$title'; there are: $(cd "$songs" && printf '%s; ' */ | tr -d /)"
mix="$out/$title.wav" stems="$out/$title"
mkdir -p "$out"
say "mixing the tracks of '$title' by Carlos Viola Iborra"
"$build/tools/tavrin-demo-audio" mix "$mix" 0 "$tracks/song.ogg" 0 "$tracks/guitar.ogg"
separate "$mix"
"$build/tools/tavrin-demo-audio" score "$mix" \
    guitar "$tracks/guitar.ogg" "$stems/rest.wav" others "$tracks/song.ogg" "$stems/$model.wav" ||
    fail "the stems do not add up to the mix"
say "listen to '$title.wav' in $out, and to $model.wav and rest.wav in $stems"
