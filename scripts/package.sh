#!/usr/bin/env bash
# Builds the Debian packages of this system and a tree that can be unpacked anywhere, into build/packages. The same
# sources give the same bytes.
#
#   scripts/package.sh          for this machine
#   scripts/package.sh arm64    cross-built, after scripts/setup.sh arm64-commands
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly preset="package${1:+-$1}"
readonly build="build/$preset" out="$PWD/build/packages"
SOURCE_DATE_EPOCH="${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}"
export SOURCE_DATE_EPOCH

say() { printf 'package: %s\n' "$*"; }

# build OPTIONS: the folders of an installation are options.
build() {
    cmake --preset "$preset" "$@" >"$build.log" 2>&1 && cmake --build "$build" --parallel "$(nproc)" >>"$build.log" 2>&1 ||
        { tail -n 20 "$build.log" >&2; exit 1; }
}

[ "${1:-}" != arm64 ] || [ -e /usr/lib/aarch64-linux-gnu/pkgconfig/pangocairo.pc ] ||
    { echo "package: the commands' libraries for arm64 are missing; run scripts/setup.sh arm64-commands" >&2; exit 1; }
mkdir -p "$out" build
say "building $preset"
if [ $# = 0 ]; then build -UCMAKE_INSTALL_LIBDIR; else build; fi  # which the second build below sets
rm -f "$build"/packages/*.deb
(cd "$build" && cpack -G DEB >cpack.log 2>&1) || { tail -n 20 "$build/cpack.log" >&2; exit 1; }

# The tree has the runtime beside the library, and no place of this machine in it.
build -DCMAKE_INSTALL_LIBDIR=lib -DTAVRIN_RUNTIME_SUBDIR=.
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
machine=$([ "${1:-}" = arm64 ] && echo aarch64 || uname -m)
name="tavrin-$version-linux-$machine"
rm -rf "$build/tree"
cmake --install "$build" --strip --prefix "$build/tree/$name" >/dev/null
install -D -m 644 "$build/packages/copyright" "$build/tree/$name/share/doc/tavrin/copyright"
tar -C "$build/tree" --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$SOURCE_DATE_EPOCH" \
    --mode=u=rwX,go=rX -cf - "$name" | gzip -9n >"$out/$name.tar.gz"
cp "$build"/packages/*.deb "$out"
for file in "$build"/packages/*.deb "$out/$name.tar.gz"; do say "$(basename "$file"), $(stat -c %s "$file") bytes"; done
