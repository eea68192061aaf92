# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
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

# counted LABEL FILE COMMAND...: the same beside other work, with a line on the last step that FILE has counted every
# 15 seconds.
counted() {
  local label=$1 log=$2 job next=$((SECONDS + 15))
  shift
  logged "$@" &
  job=$!
  while kill -0 "$job" 2>/dev/null; do
    sleep 0.1
    if ((SECONDS >= next)); then
      echo "$label $(sed -n 's/^\(\[[0-9]*\/[0-9]*\]\).*/\1/p' "$log" | tail -n 1) after $SECONDS s"
      next=$((SECONDS + 15))
    fi
  done
  wait "$job"
}

# prepare PRESET [TARGET]: from a checkout on a bare Debian to a complete build tree, or to what TARGET needs of it.
# Quick when little has changed. To be called in the repository's root; the caller has no trap on EXIT.
prepare() {
  local preset=$1 targets=("${@:2}") build=build/$1 groups=() whole=ON tools
  if ((${#targets[@]})); then
    groups=(build run samples)
    whole=OFF
  fi
  echo "[1/4] packages"
  scripts/install-packages "${groups[@]}"
  # The part of a whole tree is built in that.
  if [[ ! -f $build/build.ninja || CMakePresets.json -nt $build/build.ninja || ${#targets[@]} == 0 ]]; then
    logged "$build/configure.log" cmake --preset "$preset" \
      -DTIDEWELL_{TESTS,BENCHMARKS,DESKTOP}="$whole"
  fi
  # Beside our own build, for the encoders' have work for one processor only at times.
  scripts/get-tools "$build/lib/tidewell/tools" > >(sed --unbuffered 's|^get-tools:|[2/4] the encoders:|') &
  tools=$!
  # shellcheck disable=SC2064 # this one
  trap "kill $tools 2>/dev/null && wait $tools" EXIT
  echo "[3/4] building Tidewell ($preset)"
  counted "[3/4] building Tidewell" "$build/build.log" \
    cmake --build --preset "$preset" --parallel "$(nproc)" ${targets:+--target "${targets[@]}"}
  wait "$tools"
  trap - EXIT
}
