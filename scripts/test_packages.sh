#!/usr/bin/env bash
# Installs the packages as a user would, in empty Debian 12 and 13 systems below build/roots: ten minutes at first, for
# the roots; they are kept. Needs root, debootstrap and lintian. The packages of this system come from scripts/package.sh;
# those of Debian 13 are built here, in a root with a compiler, on that system's own ONNX Runtime.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly roots="$PWD/build/roots" packages="$PWD/build/packages"
SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}"
export SOURCE_DATE_EPOCH

say() { printf 'packages: %s\n' "$*"; }
fail() { printf 'packages: %s\n' "$*" >&2; exit 1; }

# in_root FOLDER COMMAND...: in a mount table of its own, so nothing stays mounted.
in_root() {
    unshare --mount sh -c 'mount -t proc proc "$1/proc" && mount --bind /dev "$1/dev" && root="$1" && shift &&
        exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root DEBIAN_FRONTEND=noninteractive \
            SOURCE_DATE_EPOCH="$SOURCE_DATE_EPOCH" chroot "$root" "$@"' in_root "$@"
}

# make_root NAME SUITE PACKAGES...: once.
make_root() {
    local name="$1" suite="$2" mirror
    shift 2
    [ ! -e "$roots/$name" ] || return 0
    say "making $name"
    mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Identifier: Packages' | grep -m1 -E '/debian/?$')
    rm -rf "$roots/new"
    debootstrap --variant=minbase "$suite" "$roots/new" "$mirror" >"$roots/$name.log" 2>&1 || fail "see $roots/$name.log"
    [ $# = 0 ] || in_root "$roots/new" apt-get install -y -qq --no-install-recommends "$@" >>"$roots/$name.log" 2>&1 ||
        fail "see $roots/$name.log"
    mv "$roots/new" "$roots/$name"
}

# make_song FILE SAMPLES
make_song() {
    python3 - "$@" <<'PYTHON'
import array, math, sys, wave
with wave.open(sys.argv[1], "wb") as song:
    song.setparams((2, 2, 44100, 0, "NONE", ""))
    values = (round(9000 * math.sin(0.01 * i * (1 + i % 2))) for i in range(2 * int(sys.argv[2])))
    song.writeframes(array.array("h", values).tobytes())
PYTHON
}

# What a user does, and a developer after that.
test_in() {
    local suite="$1" release="$2" root="$roots/used" tree
    say "Debian $release: apt, both commands, manual, completion, unpacked tree, hosts, removal"
    rm -rf "$root"
    cp -a "$roots/$suite" "$root"
    mkdir "$root/try"
    cp "$packages"/*"~deb${release}_$(dpkg --print-architecture).deb" "$root/try"
    mkdir "$root/try/tests"
    cp -r tests/consumers tests/examples "$root/try/tests"
    cp -r examples "$root/try"
    tree=$(echo "$packages"/tavrin-*-linux-"$(uname -m)".tar.gz)
    # FFmpeg's libraries are not in the tree, so it belongs to the system that it was built on.
    [ "$release" != "$(. /etc/os-release && echo "$VERSION_ID")" ] || cp "$tree" "$root/try"
    make_song "$root/try/song.wav" 400000
    cat >"$root/try/user.sh" <<'USER'
set -euxo pipefail
cd /try
apt-get install -y -qq --no-install-recommends ./tavrin_*.deb ./libtavrin-proc*.deb
! command -v g++
tavrin-separate song.wav
tavrin-model inspect /usr/share/tavrin/models/percussive.onnx
for tree in /opt/first "/srv/second place"; do
    [ -e "$(echo tavrin-*.tar.gz)" ] || break
    mkdir -p "$tree"
    tar -C "$tree" --strip-components=1 -xf tavrin-*.tar.gz
    "$tree/bin/tavrin-separate" --output unpacked song.wav
    cmp song/centre.wav unpacked/song/centre.wav
    cmp song/centre.rest.wav unpacked/song/centre.rest.wav
    "$tree/bin/tavrin-model" inspect "$tree/share/tavrin/models/centre.onnx"
    rm -r unpacked "$tree"
done
bash -c '. /usr/share/bash-completion/completions/tavrin-separate && complete -p tavrin-separate'
apt-get install -y -qq --no-install-recommends man-db
man tavrin-separate | grep -q tavrin-separate
man -w tavrin-model
USER
    cat >"$root/try/developer.sh" <<'DEVELOPER'
set -euxo pipefail
cd /try
apt-get install -y -qq --no-install-recommends ./libtavrin-dev_*.deb g++ cmake make pkg-config libc6-dev
for host in host c; do
    cmake -DSOURCE="tests/consumers/$host" -DBINARY_DIR="built/$host" -DGENERATOR="Unix Makefiles" \
        -P tests/consumers/consume.cmake
done
g++ -std=c++17 examples/minimal_host.cpp $(pkg-config --cflags --libs tavrin) -o consumer
cmake -DHOST=./consumer -DMODEL="$(pkg-config --variable=models tavrin)/centre.onnx" -P tests/examples/minimal_host.cmake
apt-get purge -y -qq tavrin 'libtavrin-*'
find / -xdev -name '*tavrin*' -not -path '/try/*' -not -path '/proc/*' -not -path '/var/cache/man/*' >left.txt
cat left.txt
[ ! -s left.txt ]
DEVELOPER
    for part in user developer; do
        in_root "$root" bash "/try/$part.sh" >"$roots/$suite-$part.log" 2>&1 ||
            fail "Debian $release: $(tail -n 3 "$roots/$suite-$part.log"); the rest: $roots/$suite-$part.log"
    done
}

[ "$(id -u)" = 0 ] || fail "only root can make systems to install in"
mkdir -p "$roots"
make_root bookworm bookworm
make_root trixie trixie
make_root trixie-build trixie g++ make cmake pkg-config dpkg-dev file libavformat-dev libavcodec-dev libavutil-dev \
    libswresample-dev libcli11-dev nlohmann-json3-dev libpango1.0-dev libonnxruntime-dev libxtensor-dev libxsimd-dev \
    libplog-dev

say "building for Debian 13, on its own ONNX Runtime"
inside="$roots/trixie-build/tavrin"
mkdir -p "$inside"
find "$inside" -mindepth 1 -maxdepth 1 ! -name build -exec rm -rf {} +
mkdir "$inside/.deps"
git archive HEAD | tar -x -C "$inside"
cp -rL .deps/pffft "$inside/.deps"
in_root "$roots/trixie-build" sh -ec 'cd /tavrin
    cmake -S . -B build -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_PREFIX_PATH=/tavrin/.deps/pffft \
        -DTAVRIN_INSTALL_RUNTIME=OFF -DTAVRIN_BUILD_TESTS=OFF -DTAVRIN_BUILD_EXAMPLES=OFF
    cmake --build build --parallel "$(nproc)"
    rm -f build/packages/*.deb
    cd build && cpack -G DEB' >"$roots/trixie-packages.log" 2>&1 || fail "see $roots/trixie-packages.log"
cp "$inside"/build/packages/*.deb "$packages"

say "lintian"
lintian --fail-on error "$packages"/*.deb 2>"$roots/lintian.txt" | tee -a "$roots/lintian.txt" ||
    fail "lintian has errors; see $roots/lintian.txt"

say "arm64: a host in C and the commands, on the unpacked tree, under the emulator"
tree="$roots/arm64"
rm -rf "$tree"
mkdir -p "$tree/native"
tar -C "$tree" --strip-components=1 -xf "$packages"/tavrin-*-linux-aarch64.tar.gz
tar -C "$tree/native" --strip-components=1 -xf "$packages"/tavrin-*-linux-"$(uname -m)".tar.gz
aarch64-linux-gnu-gcc -I "$tree/include" examples/separate.c -o "$tree/consumer" -L "$tree/lib" -ltavrin_proc \
    -Wl,-rpath-link,"$tree/lib"
printf '#!/bin/sh\nexec qemu-aarch64 -E LD_LIBRARY_PATH="%s/lib" "%s/consumer" "$@"\n' "$tree" "$tree" >"$tree/host"
chmod +x "$tree/host"
(cd "$tree" && cmake -DHOST="$tree/host" -DMODEL="$tree/share/tavrin/models/centre.onnx" \
    -P "$OLDPWD/tests/examples/minimal_host.cmake") || fail "it ends with $?"
qemu-aarch64 "$tree/bin/tavrin-model" inspect "$tree/share/tavrin/models/percussive.onnx" || fail "it ends with $?"
make_song "$tree/song.wav" 132300
qemu-aarch64 "$tree/bin/tavrin-separate" --output "$tree/foreign" "$tree/song.wav" || fail "it ends with $?"
"$tree/native/bin/tavrin-separate" --output "$tree/native" "$tree/song.wav" || fail "it ends with $?"
python3 - "$tree" <<'PYTHON' || fail "the two machines' stems differ"
import array, sys
def samples(path):
    wav = open(path, "rb").read()
    return array.array("f", wav[wav.index(b"data") + 8:])  # the last chunk
for part in "centre", "centre.rest":
    foreign, native = (samples(f"{sys.argv[1]}/{machine}/song/{part}.wav") for machine in ("foreign", "native"))
    most = max(abs(a - b) for a, b in zip(foreign, native))
    print(f"{part}: {len(foreign)} and {len(native)} values, at most {most:.1e} apart, peak {max(map(abs, native)):.2f}")
    if len(foreign) != 2 * 132300 or len(native) != len(foreign) or most > 1e-6:  # rounding alone
        sys.exit(1)
PYTHON

test_in bookworm 12
test_in trixie 13
say "all is well"
