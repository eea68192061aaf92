# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# Reads packaging/tools.txt and says what it accepts; sourced, not run.

declare -A pins=()
entries=() programs=()

# read_manifest FILE: fills entries, programs and pins. A manifest that is not complete accepts nothing.
read_manifest() {
  local file=$1 line entry="" key number=0
  entries=() programs=() pins=()
  while IFS= read -r line || [[ -n $line ]]; do
    number=$((number + 1))
    if [[ $line =~ ^\[([a-z0-9-]+)\]$ && " ${entries[*]} " != *" ${BASH_REMATCH[1]} "* ]]; then
      entry=${BASH_REMATCH[1]}
      entries+=("$entry")
    elif [[ -n $entry && $line =~ ^(version|origin|sha256|licence|programs|part-of|needs|features|probe|answer):\ ([^\"\\]+)$ &&
      -z ${pins[$entry ${BASH_REMATCH[1]}]-} ]]; then
      pins[$entry ${BASH_REMATCH[1]}]=${BASH_REMATCH[2]}
    elif [[ -n $line && $line != '#'* ]]; then
      echo "$file:$number: not understood: $line" >&2
      return 1
    fi
  done <"$file"
  for entry in "${entries[@]}"; do
    for key in version origin sha256 licence; do
      [[ -n $(pin "$entry" "$key") ]] || { echo "$file: [$entry] has no $key" >&2; return 1; }
    done
    [[ $(pin "$entry" sha256) =~ ^[0-9a-f]{64}(\ [0-9a-f]{64})*$ ]] ||
      { echo "$file: [$entry] has a broken checksum" >&2; return 1; }
    read -ra line <<<"$(pin "$entry" programs)"
    programs+=("${line[@]}")
  done
}

# pin ENTRY KEY: its value, empty without one.
pin() { echo "${pins[$1 $2]-}"; }

# with_pin KEY VALUE: the entries with that word in the value of that key.
with_pin() {
  local entry
  for entry in "${entries[@]}"; do
    if [[ " $(pin "$entry" "$1") " == *" $2 "* ]]; then echo "$entry"; fi
  done
}

# Has the user asked to take ENTRY as it comes? A part goes with its whole.
unpinned() {
  local entry
  entry=$(pin "$1" part-of)
  [[ ${TIDEWELL_UNPINNED-} == all || " ${TIDEWELL_UNPINNED-} " == *" ${entry:-$1} "* ]]
}

# accepts ENTRY FILE: has it one of the checksums of the tarball or crate that the manifest means?
accepts() {
  local sum
  sum=$(sha256sum <"$2") && [[ " $(pin "$1" sha256) " == *" ${sum%% *} "* ]]
}

# The first line that a program of ENTRY prints for its probe, empty when it has none.
probed() {
  local entry=$1 program=$2 probe output
  probe=$(pin "$entry" probe)
  [[ -n $probe ]] || return 0
  output=$(timeout 20 "$program" "$probe" 2>&1 </dev/null) && echo "${output%%$'\n'*}"
}

# is_pinned ENTRY PROGRAM: does it tell the pinned version?
is_pinned() {
  local answer line
  answer=$(pin "$1" answer)
  line=$(probed "$@") && [[ -n $answer && ($line == "$answer" || $line == "$answer"[!0-9.]*) ]]
}
