# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# shellcheck disable=SC2154 # scripts, cache, work and given are get-tools's directories
# Fetches and builds what packaging/tools.txt names; sourced by get-tools, not run.

# Running builds: the process group of each by its entry.
declare -A jobs=()

readonly jpegxl_options=(
  -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF -DBUILD_TESTING=OFF
  -DJPEGXL_ENABLE_JPEGLI=ON -DJPEGXL_ENABLE_TOOLS=ON -DJPEGXL_ENABLE_DEVTOOLS=ON
  -DJPEGXL_FORCE_SYSTEM_BROTLI=ON -DJPEGXL_FORCE_SYSTEM_LCMS2=ON -DJPEGXL_BUNDLE_LIBPNG=OFF
  -DJPEGXL_ENABLE_JPEGLI_LIBJPEG=OFF -DJPEGXL_ENABLE_DOXYGEN=OFF -DJPEGXL_ENABLE_MANPAGES=OFF
  -DJPEGXL_ENABLE_BENCHMARK=OFF -DJPEGXL_ENABLE_EXAMPLES=OFF -DJPEGXL_ENABLE_SJPEG=OFF
  -DJPEGXL_ENABLE_OPENEXR=OFF -DJPEGXL_ENABLE_JNI=OFF -DJPEGXL_ENABLE_SKCMS=OFF -DJPEGXL_ENABLE_VIEWERS=OFF
  -DJPEGXL_ENABLE_PLUGINS=OFF
)
readonly gifsicle_options=(--disable-gifview --disable-gifdiff)

# The directory that keeps what ENTRY's pins yield on this machine: what was built elsewhere, otherwise or from other
# pins is never taken for it. With "unpinned", the one for what was built from something else.
cache_entry() {
  local entry=$1 part machine key=() options=()
  for part in "$entry" $(with_pin part-of "$entry"); do
    key+=("$part $(pin "$part" version) $(pin "$part" sha256)")
  done
  case $entry in
    jpeg-xl) options=("${jpegxl_options[@]}") ;;
    gifsicle) options=("${gifsicle_options[@]}") ;;
    *) read -ra options <<<"$(pin "$entry" features)" ;;
  esac
  if [[ $2 == unpinned ]]; then options+=(unpinned); fi
  # shellcheck source=/dev/null
  machine=$(. /etc/os-release && echo "$ID $VERSION_ID $(uname -m)")
  key=("$machine" "${key[@]}" "${options[@]}")
  echo "$cache/$entry-$(echo "${key[*]}" | sha256sum | cut -c1-12)"
}

# download_sources DIR ENTRY...: the upstream tarballs of their Debian source packages, from the mirror that this machine
# uses, under an apt configuration and state of its own. apt checks the archive's signatures.
download_sources() {
  local directory=$1 apt=$work/apt mirror keyring entry suite name suites=() names=()
  shift
  for entry in "$@"; do
    read -r _ suite name <<<"$(pin "$entry" origin)"
    suites+=("$suite") names+=("$name/$suite")
  done
  keyring=$(find /usr/share/keyrings -name 'debian-archive-keyring.[gp]pg' -print -quit)
  if [[ -z $keyring ]]; then
    echo "no Debian archive keyring; install debian-archive-keyring" >&2
    return 1
  fi
  mkdir -p "$directory" "$apt/lists/partial" "$apt/cache/archives/partial"
  {
    # How this machine reaches its mirrors (proxies and the like), but none of its sources and hooks.
    apt-config dump --no-empty Acquire | grep -v '^Acquire::IndexTargets' || true
    cat <<EOF
Dir::Etc::main "/dev/null";
Dir::Etc::parts "/dev/null";
Dir::Etc::sourceparts "/dev/null";
Dir::Etc::sourcelist "$apt/sources.list";
Dir::State "$apt";
Dir::State::status "/dev/null";
Dir::Cache "$apt/cache";
APT::Sandbox::User "root"; // the usual user may not enter our private directory
EOF
  } >"$apt/apt.conf"
  for mirror in $(apt-get update --print-uris |
    sed -n "s|^'\(.*\)/dists/[a-z]*/InRelease' .*|\1|p" | awk '!seen[$0]++'); do
    for suite in "${suites[@]}"; do echo "deb-src [signed-by=$keyring] $mirror $suite main"; done |
      sort -u >"$apt/sources.list"
    (
      export APT_CONFIG=$apt/apt.conf
      cd "$directory"
      apt-get --error-on=any update &&
        apt-get source --tar-only "${names[@]}"
    ) && return
  done
  echo "no Debian mirror of this machine offers ${names[*]}" >&2
  return 1
}

# What was let through against its pin leaves a mark, for what is built from it is kept apart.
let_through() {
  echo "$2" >&2
  if ! unpinned "$1"; then return 1; fi
  touch "$work/$1.unpinned"
  echo "taken all the same, as TIDEWELL_UNPINNED says" >&2
}

# check_pin ENTRY FILE: is that the tarball or crate that the manifest means, or one that the user lets through?
check_pin() {
  local entry=$1 file=$2
  accepts "$entry" "$file" ||
    let_through "$entry" "${file##*/} has none of the accepted checksums of [$entry]: $(sha256sum <"$file")"
}

# pinned_tarball ENTRY: where that of ENTRY lies, when it is the pinned one. Where this is called, "set -e" does not hold.
pinned_tarball() {
  local entry=$1 name tarball
  read -r _ _ name <<<"$(pin "$entry" origin)"
  tarball=$(find "$work/tar" -name "${name}_*.orig.tar.*" ! -name '*.asc' -print -quit)
  [[ -n $tarball ]] || { echo "apt-get has left no tarball of $name" >&2; return 1; }
  if [[ ${tarball##*/} != "${name}_$(pin "$entry" version).orig.tar."* ]]; then
    # A point release of the suite has moved on.
    let_through "$entry" "the pin is $name $(pin "$entry" version), Debian has ${tarball##*/}" || return
  fi
  check_pin "$entry" "$tarball" || return
  echo "$tarball"
}

# Unpacks the tarball of ENTRY into DIR, or takes what lies unpacked in the given sources.
unpack() {
  local entry=$1 directory=$2 tarball
  mkdir -p "$directory"
  if [[ -n $given ]]; then
    cp -a "$given/$entry/." "$directory"
  else
    tarball=$(pinned_tarball "$entry")
    tar -xf "$tarball" --strip-components=1 -C "$directory"
  fi
}

# The builders leave their programs in $1/programs. They run with "set -e" in a process of their own.

build_jpegxl() {
  local tree=$1/tree part
  unpack jpeg-xl "$tree"
  for part in $(with_pin part-of jpeg-xl); do unpack "$part" "$tree/third_party/$part"; done
  cmake -S "$tree" -B "$tree/build" -G Ninja "${jpegxl_options[@]}"
  cmake --build "$tree/build" --parallel "$(nproc)" --target cjpegli ssimulacra2
  cp "$tree"/build/tools/{cjpegli,ssimulacra2} "$1/programs"
}

build_gifsicle() {
  local tree=$1/tree
  unpack gifsicle "$tree"
  cd "$tree" || return
  autoreconf --install
  ./configure "${gifsicle_options[@]}"
  make --jobs "$(nproc)"
  cp src/gifsicle "$1/programs"
}

# cargo compares a crate with the registry's checksum; here it is compared with ours before the program is ever run.
build_crate() {
  local directory=$1 entry=$2 name version crate checked=no
  read -r _ name <<<"$(pin "$entry" origin)"
  if [[ -n $given ]]; then
    unpack "$entry" "$directory/crate"
    CARGO_HOME=$directory/cargo vendor_crates "$directory/crate/Cargo.lock" "$directory/vendor" || return
    CARGO_HOME=$directory/cargo CARGO_TARGET_DIR=$directory/tree cargo install --locked --offline \
      --features "$(pin "$entry" features)" --root "$directory" --no-track --path "$directory/crate"
    cp "$directory/bin/"* "$directory/programs"
    return
  fi
  version=$(pin "$entry" version)
  CARGO_TARGET_DIR=$directory/tree cargo install --locked --version "=$version" --features "$(pin "$entry" features)" \
    --root "$directory" --no-track "$name"
  for crate in "${CARGO_HOME:-$HOME/.cargo}"/registry/cache/*/"$name-$version.crate"; do
    [[ -e $crate ]] || continue
    check_pin "$entry" "$crate"
    checked=yes
  done
  [[ $checked == yes ]] || let_through "$entry" "cargo has left no ${crate##*/} whose checksum could be looked at"
  cp "$directory/bin/"* "$directory/programs"
}

# crates_of LOCK: name, version and checksum of every crate that a Cargo.lock takes from the registry.
crates_of() {
  awk -F '"' '/^name = / { name = $2 } /^version = / { version = $2 } /^checksum = / { print name, version, $2 }' "$1"
}

# Crates that are no source but libraries built for another system, which nothing here is linked with.
is_prebuilt() { [[ $1 == windows_* ]]; }

# vendor_crates LOCK DIR: makes DIR cargo's only registry, with the crates that LOCK names out of the given sources.
# Each must have the checksum that LOCK has for it.
vendor_crates() {
  local lock=$1 directory=$2 name version sum crate
  mkdir -p "$directory" "$CARGO_HOME"
  while read -r name version sum; do
    crate=$directory/$name-$version
    mkdir -p "$crate/src"
    if is_prebuilt "$name"; then
      # cargo wants to see what it will not use.
      printf '[package]\nname = "%s"\nversion = "%s"\n' "$name" "$version" >"$crate/Cargo.toml"
      touch "$crate/src/lib.rs"
    else
      sha256sum --check --quiet <<<"$sum  $given/crates/$name-$version.crate" || return
      tar -xf "$given/crates/$name-$version.crate" --strip-components=1 -C "$crate"
    fi
    printf '{"files": {}, "package": "%s"}\n' "$sum" >"$crate/.cargo-checksum.json"
  done < <(crates_of "$lock")
  cat >"$CARGO_HOME/config.toml" <<EOF
[source.crates-io]
replace-with = "vendored"
[source.vendored]
directory = "$directory"
EOF
}

# download_crates DIR ENTRY...: their crates, and in DIR/crates those that they need.
download_crates() {
  local directory=$1 entry name version sum crate project=$work/project
  local -x CARGO_HOME=$work/cargo
  shift
  mkdir -p "$directory/crates" "$project/src"
  touch "$project/src/lib.rs"
  {
    printf '[package]\nname = "sources"\nversion = "0.0.0"\n[dependencies]\n'
    for entry in "$@"; do
      read -r _ name <<<"$(pin "$entry" origin)"
      printf '%s = "=%s"\n' "$name" "$(pin "$entry" version)"
    done
  } >"$project/Cargo.toml"
  cargo fetch --manifest-path "$project/Cargo.toml" || return
  for entry in "$@"; do
    read -r _ name <<<"$(pin "$entry" origin)"
    crate=$(find "$CARGO_HOME/registry/cache" -name "$name-$(pin "$entry" version).crate")
    check_pin "$entry" "$crate" || return
    cp "$crate" "$directory/$entry.tar.gz"
    mkdir "$work/$entry"
    tar -xf "$crate" --strip-components=1 -C "$work/$entry"
    cargo fetch --locked --manifest-path "$work/$entry/Cargo.toml" || return
    while read -r name version sum; do
      if is_prebuilt "$name"; then continue; fi
      crate=$(find "$CARGO_HOME/registry/cache" -name "$name-$version.crate")
      sha256sum --check --quiet <<<"$sum  $crate" || return
      cp "$crate" "$directory/crates"
    done < <(crates_of "$work/$entry/Cargo.lock")
  done
}

# download_all DIR: every pinned source as DIR/ENTRY.tar.*, byte for byte.
download_all() {
  local directory=$1 entry tarballs=() crates=()
  mkdir -p "$directory"
  for entry in "${entries[@]}"; do
    if [[ $(pin "$entry" origin) == crate* ]]; then crates+=("$entry"); else tarballs+=("$entry"); fi
  done
  for entry in "${crates[@]}"; do
    cargo_is_recent "$(pin "$entry" needs)" || "$scripts/install-packages" cargo || return
  done
  download_crates "$directory" "${crates[@]}" || return
  download_tarballs "$directory" "${tarballs[@]}"
}

# download_tarballs DIR ENTRY...: their tarballs as DIR/ENTRY.tar.*.
download_tarballs() {
  local directory=$1 entry tarball
  shift
  download_sources "$work/tar" "$@" || return
  for entry in "$@"; do
    tarball=$(pinned_tarball "$entry") || return
    cp "$tarball" "$directory/$entry.tar.${tarball##*.}"
  done
}

# Builds ENTRY and makes its programs a cache entry in one step, after they have shown that they work.
build() {
  local entry=$1 directory=$work/$1 program kept=pinned
  mkdir -p "$directory/programs"
  case $entry in
    jpeg-xl) build_jpegxl "$directory" ;;
    gifsicle) build_gifsicle "$directory" ;;
    *) build_crate "$directory" "$entry" ;;
  esac
  for program in "$directory"/programs/*; do
    strip "$program" 2>/dev/null || true
    works "${program##*/}" "$program" || {
      echo "the new ${program##*/} fails on a tiny image" >&2
      return 1
    }
  done
  if [[ -e $work/$entry.unpinned ]]; then kept=unpinned; fi
  kept=$(cache_entry "$entry" "$kept")
  rm -rf "$kept"
  sync "$directory"/programs/*
  mv -T "$directory/programs" "$kept"
}

cargo_is_recent() {
  local version
  version=$(cargo --version 2>/dev/null | cut -d' ' -f2) &&
    printf '%s\n' "$1" "$version" | sort --version-sort --check=quiet
}

start() {
  local entry
  for entry in "$@"; do
    say "building $(pin "$entry" programs) ($entry $(pin "$entry" version))"
    set -m
    build "$entry" >"$work/$entry.log" 2>&1 </dev/null &
    set +m
    jobs[$entry]=$!
  done
}

# One line on the builds that still run, each with the last step that it has counted.
progress() {
  local entry line=
  for entry in "${!jobs[@]}"; do
    line+=", $entry$(sed -n 's/^\(\[[0-9]*\/[0-9]*\]\).*/ \1/p' "$work/$entry.log" | tail -n 1)"
  done
  say "still building after $SECONDS s: ${line#, }"
}

# Builds are out of the terminal's reach: whatever ends this script ends them by this.
end_builds() {
  local job
  for job in "${jobs[@]}"; do
    kill -- "-$job" 2>/dev/null || continue
    wait "$job" || true
  done
}

# Waits for the builds and says what became of each.
await() {
  local entry next=$((SECONDS + 15))
  while ((${#jobs[@]})); do
    sleep 0.2
    for entry in "${!jobs[@]}"; do
      if kill -0 "${jobs[$entry]}" 2>/dev/null; then continue; fi
      if wait "${jobs[$entry]}"; then
        say "built $(pin "$entry" programs)"
      else
        failed "$entry" "$work/$entry.log"
      fi
      unset "jobs[$entry]"
    done
    if ((SECONDS >= next && ${#jobs[@]})); then
      progress
      next=$((SECONDS + 15))
    fi
  done
}

# Shows the end of a log and keeps all of it.
failed() {
  local kept=$cache/failure-$1.log
  cp "$2" "$kept"
  tail -n 30 "$kept" >&2
  echo "get-tools: failed: $1 (the whole output: $kept)" >&2
}

# build_all ENTRY...: all at once, for only the largest has work for all processors all the time.
build_all() {
  local entry groups=(tools) tarballs=() crates=() sources=()
  for entry in "$@"; do
    if [[ $(pin "$entry" origin) == crate* ]]; then
      crates+=("$entry")
      cargo_is_recent "$(pin "$entry" needs)" || groups=(tools cargo)
    else
      tarballs+=("$entry")
      mapfile -t -O "${#sources[@]}" sources < <(echo "$entry" && with_pin part-of "$entry")
    fi
  done
  "$scripts/install-packages" "${groups[@]}" || return 0
  start "${crates[@]}"
  if ((${#tarballs[@]})); then
    say "fetching the sources of ${sources[*]}"
    if download_sources "$work/tar" "${sources[@]}" >"$work/sources.log" 2>&1 </dev/null; then
      start "${tarballs[@]}"
    else
      failed sources "$work/sources.log"
    fi
  fi
  await
}
