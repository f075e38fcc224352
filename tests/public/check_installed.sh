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

# Completion and manual page; what checks them need not be there.
share=$copy/share
complete() {
  bash -c 'source "$0"; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _qelvideo; echo "${COMPREPLY[*]}"' \
    "$share/bash-completion/completions/qelvideo" "$@"
}
say "$(complete qelvideo vi)" view "Completion of a command"
say "$(complete qelvideo --log view film.y4m --bac)" "--background --backend" "Completion of options"
say "$(complete qelvideo view --backend o)" opengl "Completion of a choice"
say "$(complete qelvideo view --screenshot v)" "" "Completion of a file"
! command -v zsh >"$folder/log" || zsh -n "$share/zsh/site-functions/_qelvideo"
! command -v fish >"$folder/log" || fish -n "$share/fish/vendor_completions.d/qelvideo.fish"
! command -v groff >"$folder/log" || say "$(groff -man -ww -z "$share/man/man1/qelvideo.1" 2>&1)" "" "The manual page"
