#!/usr/bin/env bash
# Runs all that a release needs and prints a list; hours on two cores. Logs: build/release-check.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly logs="$PWD/build/release-check"
readonly version="$(sed -nE 's/^#define TAVRIN_VERSION_(MAJOR|MINOR|PATCH) ([0-9]+)$/\2/p' include/tavrin/tavrin_c.h | paste -sd.)"
mkdir -p "$logs"
result=0

# check NAME WHAT COMMAND...
check() {
    local name="$1" what="$2" start=$SECONDS
    shift 2
    if "$@" >"$logs/$name.txt" 2>&1; then
        printf '[x] %s (%d s)\n' "$what" $((SECONDS - start))
    else
        printf '[ ] %s: see build/release-check/%s.txt\n' "$what" "$name"
        result=1
    fi
}

# The same packages and the same wheel from two builds.
twice_the_same() {
    local first
    rm -rf build/package build/wheel/build
    make --no-print-directory package wheel && first=$(sha256sum build/packages/* build/wheel/*.whl) || return
    rm -rf build/package build/wheel/build
    make --no-print-directory package wheel && diff <(echo "$first") <(sha256sum build/packages/* build/wheel/*.whl)
}

echo "Tavrin $version"
check clean "nothing is left uncommitted" test -z "$(git status --porcelain)"
check changelog "CHANGELOG.md has this version at its top" \
    bash -c "grep -m1 '^## ' CHANGELOG.md | grep -qF '## $version'"
check dated "and no longer calls it unreleased" bash -c "! grep -m1 '^## ' CHANGELOG.md | grep -q unreleased"
check port "the port for vcpkg has this version, too" grep -qF "\"version\": \"$version\"" packaging/vcpkg/vcpkg.json
check ci "everything that CI does" bash .ci/run
check stress "stress programs" make stress
check fuzz "fuzzers, five minutes each" make fuzz
check same "two builds of packages and wheel give the same bytes" twice_the_same
check packages "packages install, work and leave nothing behind on Debian 12 and 13" make test-packages
check tag "the tag v$version is not taken" bash -c "! git rev-parse -q --verify refs/tags/v$version"
exit $result
