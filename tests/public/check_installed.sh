#!/bin/bash
# check_installed.sh BUILD SOURCE: installs the build, moves the copy elsewhere, and uses it as hosts do, by CMake
# and by pkg-config. The copy shows nothing but its public interface.
set -euo pipefail
build=$1 source=$2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

cmake --install "$build" --prefix "$folder/first" >"$folder/log"
mkdir "$folder/elsewhere"
copy=$folder/elsewhere/copy
mv "$folder/first" "$copy"
library=$(find "$copy" -name 'libQelUtilVideo.so')

others=$(nm --dynamic --defined-only --demangle "$library" | grep -v 'QelUtilVideo::\|QelKit::' || true)
[[ -z $others ]] || { echo "The library shows what is not its own: $others"; exit 1; }

say() { [[ $1 == "$2" ]] || { echo "$3: $1"; exit 1; }; }
cmake -S "$source/tests/public/installed" -B "$folder/host" -DCMAKE_PREFIX_PATH="$copy" >"$folder/log" 2>&1 &&
  cmake --build "$folder/host" >>"$folder/log" 2>&1 || { cat "$folder/log"; exit 1; }
say "$("$folder/host/host")" grey "The host that CMake built"

export PKG_CONFIG_PATH=${library%/*}/pkgconfig
# shellcheck disable=SC2046: flags are words
c++ -std=c++20 "$source/tests/public/installed/host.cpp" -o "$folder/plain" $(pkg-config --cflags --libs QelUtilVideo)
say "$(LD_LIBRARY_PATH=${library%/*} "$folder/plain")" grey "The host that pkg-config helped to build"

"$copy/bin/qelvideo" --version >"$folder/log" || { cat "$folder/log"; exit 1; }
