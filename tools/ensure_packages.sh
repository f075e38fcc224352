# Sourced by ./run and ./test: ensure_packages WHEN... installs what packages.txt names for these
# occasions and what is not there yet, with apt, saying what and why.

ensure_packages() {
  local list missing=() name occasion why
  list="$(dirname "${BASH_SOURCE[0]}")/packages.txt"
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "This system has no apt: what $list names has to be there already." >&2
    return 0
  fi

  local wanted=()
  while read -r name occasion why; do
    [[ -z $name || $name == \#* || " $* " != *" $occasion "* ]] || wanted+=("$name")
  done <"$list"

  local installed
  installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null | sort -u) || true
  for name in "${wanted[@]}"; do
    grep -qx "installed $name" <<<"$installed" || missing+=("$name")
  done
  [[ ${#missing[@]} -gt 0 ]] || return 0

  echo "Installing with apt:" >&2
  while read -r name occasion why; do
    [[ " ${missing[*]} " != *" $name "* ]] || printf '  %-20s %s\n' "$name" "$why" >&2
  done <"$list"

  local as_root=()
  if [[ $(id -u) -ne 0 ]]; then
    if ! command -v sudo >/dev/null; then
      echo "That needs root. Run this as root: apt-get install ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  export DEBIAN_FRONTEND=noninteractive
  local output
  output=$("${as_root[@]}" apt-get update -qq 2>&1) || echo "$output" >&2
  if ! output=$("${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" 2>&1); then
    echo "$output" >&2
    echo "apt could not install them; see its words above." >&2
    return 1
  fi
}

# build_preset PRESET [TARGET]: configures it when it never was and builds it; quiet when all is well.
build_preset() {
  local log="build/$1.log" target="${2:-all}"
  mkdir -p build
  if [[ ! -f build/$1/build.ninja ]] && ! cmake --preset "$1" >"$log" 2>&1; then
    cat "$log" >&2
    echo "The build could not be configured; see above." >&2
    return 1
  fi
  if [[ -t 2 ]]; then
    cmake --build "build/$1" --target "$target" >&2
  elif ! cmake --build "build/$1" --target "$target" >"$log" 2>&1; then
    tail -n 100 "$log" >&2
    echo "The build failed; see above." >&2
    return 1
  fi
}
