#!/bin/sh
# Installs the build into a scratch prefix and builds a platform's agent
# against it out of tree: with CMake's find_package, then with pkg-config and
# a plain compiler line. Every program it builds must run.
# usage: run.sh BUILD_DIR SOURCE_DIR README_EXAMPLE LIBDIR
set -eu
build=$(realpath "$1") source=$(realpath "$2") example=$(realpath "$3") libdir=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix

cmake --install "$build" --prefix "$prefix" > "$work/install.log"
cmake -S "$source/tests/install" -B "$work/agent" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
      -DREADME_EXAMPLE="$example" > "$work/configure.log"
cmake --build "$work/agent" > "$work/build.log" || { cat "$work/build.log"; exit 1; }
"$work/agent/readme_agent"
"$work/agent/platform_entity"

export PKG_CONFIG_PATH="$prefix/$libdir/pkgconfig"
# shellcheck disable=SC2046
c++ -o "$work/plain_agent" "$example" $(pkg-config --cflags --libs fabvxlan) -Wl,-rpath,"$prefix/$libdir"
"$work/plain_agent"
"$prefix/bin/fabvxlan-sim" > /dev/null
[ -x "$prefix/bin/fabvxlan-ringdump" ]
echo "installed FabVxlan $(pkg-config --modversion fabvxlan) builds and runs out of tree"
