#!/usr/bin/env bash
# Separates a song with the built command and says where the stems lie. Everything is written to demo/.
#
#   scripts/demo.sh BUILD_FOLDER         a recorded song whose guitar track is known, with a table of how near it came
#   scripts/demo.sh BUILD_FOLDER SONG    your own file
#
# DEMO_SONG=TITLE chooses another of the recorded songs.
set -euo pipefail

readonly root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly build="${1:?usage: scripts/demo.sh BUILD_FOLDER [SONG]}" song="${2:-}"
readonly out="$root/demo" songs="$root/.deps/songs/sectoid"
# First in the alphabet, and the one where the panning helps most: its guitars are wide, the others are not.
readonly title="${DEMO_SONG:-Escape from chaosland}"

say() { printf 'demo: %s\n' "$*"; }
fail() { printf 'demo: %s\n' "$*" >&2; exit 1; }

for tool in tavrin-separate tavrin-demo-audio; do
    [ -x "$build/tools/$tool" ] || fail "$build/tools/$tool is missing: build first (make demo does it all)"
done

if [ -n "$song" ]; then
    "$build/tools/tavrin-separate" "$song" -o "$out"
    name=$(basename "$song")
    say "listen to centre.wav and rest.wav in $out/${name%.*}"
    exit
fi

"$root/scripts/setup.sh" songs
tracks="$songs/$title"
[ -f "$tracks/guitar.ogg" ] || fail "no song '$title'; there are: $(cd "$songs" && printf '%s; ' */ | tr -d /)"
mix="$out/$title.wav" stems="$out/$title"
mkdir -p "$out"
say "mixing the tracks of '$title' by Carlos Viola Iborra"
"$build/tools/tavrin-demo-audio" mix "$mix" "$tracks/song.ogg" "$tracks/guitar.ogg"
say "separating the mix"
"$build/tools/tavrin-separate" "$mix" -o "$out"
"$build/tools/tavrin-demo-audio" score "$mix" "$stems/centre.wav" "$stems/rest.wav" "$tracks/song.ogg" "$tracks/guitar.ogg" ||
    fail "the stems do not add up to the mix"
say "listen to '$title.wav' in $out, and to centre.wav and rest.wav in $stems"
