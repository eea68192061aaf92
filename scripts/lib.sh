# shellcheck shell=bash
# What several of the scripts share; sourced, not run.

# logged FILE COMMAND...: runs a command with its output in FILE, the end of which is shown when it fails.
logged() {
  local log=$1
  shift
  mkdir -p "$(dirname "$log")"
  "$@" >"$log" 2>&1 </dev/null && return
  tail -n 40 "$log" >&2
  echo "failed: $* (whole output: $log)" >&2
  return 1
}

# prepare PRESET: from a checkout on a bare Debian to a complete build tree. Quick when little has changed.
# To be called in the repository's root.
prepare() {
  local preset=$1
  local build=build/$preset
  scripts/install-packages
  scripts/get-tools "$build/lib/tidewell/tools"
  echo "building ($preset)"
  logged "$build/configure.log" cmake --preset "$preset"
  logged "$build/build.log" cmake --build --preset "$preset" --parallel "$(nproc)"
}
