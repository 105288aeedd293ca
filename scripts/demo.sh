#!/usr/bin/env bash
# Takes the voice out of a song with the built command and says where the stems lie. Everything is written to demo/.
#
#   scripts/demo.sh BUILD_FOLDER         a recorded band with a recorded voice over it, and a table of how near the voice
#                                        and the band came
#   scripts/demo.sh BUILD_FOLDER SONG    your own file
#
# The trained network `vocals` does it; where its package cannot be had, the formula `voice`. DEMO_SONG=TITLE chooses
# another of the recorded songs, DEMO_MODEL=NAME another model.
set -euo pipefail

readonly root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly build="${1:?usage: scripts/demo.sh BUILD_FOLDER [SONG]}" song="${2:-}"
readonly out="$root/demo" songs="$root/.deps/songs/sectoid" voices="$root/.deps/voices"
readonly title="${DEMO_SONG:-Escape from chaosland}"
# The band's tracks are that much softer in the mix, which makes band and voice about equally loud.
readonly band_db=-11

say() { printf 'demo: %s\n' "$*"; }
fail() { printf 'demo: %s\n' "$*" >&2; exit 1; }
audio() { "$build/tools/tavrin-demo-audio" "$@"; }
# separate SONG MODEL NAMES_OF_RESULTS
separate() { "$build/tools/tavrin-separate" -o "$out" --model "$2" --name "{song}/$3.{ext}" -- "$1"; }

for tool in tavrin-separate tavrin-demo-audio; do
    [ -x "$build/tools/$tool" ] || fail "$build/tools/$tool is missing: build first (make demo does it all)"
done

if ! model="${DEMO_MODEL:-}" || [ -z "$model" ]; then
    model=vocals
    "$root/scripts/setup.sh" vocals || {
        [ $? = 3 ] || exit 1
        say "going on with the formula 'voice' instead of the network 'vocals'"
        model=voice
    }
fi

if [ -n "$song" ]; then
    separate "$song" "$model" '{part}'
    say "listen to $model.wav and rest.wav there"
    exit
fi

"$root/scripts/setup.sh" songs
"$root/scripts/setup.sh" voices
tracks="$songs/$title"
[ -f "$tracks/guitar.ogg" ] || fail "no song '$title'; there are: $(cd "$songs" && printf '%s; ' */ | tr -d /)"
mix="$out/$title.wav" stems="$out/$title"
mkdir -p "$stems"
say "mixing '$title' by Carlos Viola Iborra with voices of the game Fish Fillets"
audio mix "$stems/track of the band.wav" "$band_db" "$tracks/song.ogg" "$band_db" "$tracks/guitar.ogg"
audio join "$stems/track of the voice.wav" 5 "$voices"/*/*.ogg
audio mix "$mix" 0 "$stems/track of the band.wav" 0 "$stems/track of the voice.wav"

readonly models=($([ "$model" = voice ] || echo voice) "$model")
voice_row=() band_row=()
for each in "${models[@]}"; do
    separate "$mix" "$each" '{stem}'
    voice_row+=("$stems/$each.wav")
    band_row+=("$stems/$each.rest.wav")
done
audio score "$mix" "${models[@]}" : voice "$stems/track of the voice.wav" "${voice_row[@]}" \
    : band "$stems/track of the band.wav" "${band_row[@]}" || fail "the stems do not add up to the mix"
say "listen to '$title.wav' in $out, and to $model.wav and $model.rest.wav in $stems"
