# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# Makes the two source packages; sourced, not run. The caller has "fail" and is in the repository's root.

# The one version, CMake's.
project_version() { sed -n 's/^project(Tidewell VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt; }

# What is tracked, as it lies here, is a tree that git can archive; nothing in the checkout changes.
tracked_tree() {
  local stash
  # Whoever has told git no name gets one, for an object that nobody keeps.
  stash=$(git -c user.name=package -c user.email=package@localhost stash create) && echo "${stash:-HEAD}"
}

# archive FILE PREFIX PATH...: a tarball that depends on nothing but the content and the commit's time.
archive() {
  local file=$1 prefix=$2
  shift 2
  git archive --format=tar --prefix="$prefix/" "$tree" -- "$@" | gzip -9n >"$file"
}

# make_sources DIR: the upstream tarballs of both source packages, and each unpacked with its debian folder.
# make_sources DIR tidewell: of that one alone.
make_sources() {
  local directory=$1 version tree epoch
  version=$(project_version)
  [[ $(sed -n '1s/^tidewell (\(.*\)-[0-9]*) .*/\1/p' debian/changelog) == "$version" ]] ||
    fail "debian/changelog begins with another version than CMakeLists.txt, $version"
  tree=$(tracked_tree)
  epoch=$(git log -1 --format=%ct)
  rm -rf "$directory"
  mkdir -p "$directory/tidewell-$version"
  archive "$directory/tidewell_$version.orig.tar.gz" "tidewell-$version" . ':!debian' ':!packaging/debian-tools'
  tar -xf "$directory/tidewell_$version.orig.tar.gz" -C "$directory"
  git archive "$tree" debian | tar -x -C "$directory/tidewell-$version"
  if [[ ${2-} != tidewell ]]; then make_tools_source "$directory" "tidewell-tools-$version"; fi
}

# The encoders' sources, byte for byte as their authors released them, are further upstream tarballs of theirs.
make_tools_source() {
  local directory=$1 name=$2 pins=$PWD/build/packages/pins upstream component file
  upstream=$directory/${name/tools-/tools_}.orig
  fetch_pins "$pins"
  archive "$upstream.tar.gz" "$name" LICENSE packaging/tools.txt scripts/get-tools scripts/tools-{build,manifest}.sh
  mkdir "$directory/$name"
  tar -xf "$upstream.tar.gz" -C "$directory"
  for file in "$pins"/*.tar.*; do
    component=${file##*/} component=${component%%.*}
    cp "$file" "$upstream-$component.tar.${file##*.}"
    mkdir "$directory/$name/$component"
    tar -xf "$file" --strip-components=1 -C "$directory/$name/$component"
  done
  tar --sort=name --owner=0 --group=0 --numeric-owner --mode=go=rX,u+rw --mtime="@$epoch" -C "$pins" -c crates |
    gzip -9n >"$upstream-crates.tar.gz"
  tar -xf "$upstream-crates.tar.gz" -C "$directory/$name"
  git archive "$tree" packaging/debian-tools | tar -x --strip-components=1 -C "$directory/$name"
  mv "$directory/$name/debian-tools" "$directory/$name/debian"
  finish_tools_debian "$directory/$name"
}

# What the folder needs besides what is kept: the one changelog, and what the crates say of themselves.
finish_tools_debian() {
  local debian=$1/debian
  sed 's/^tidewell (/tidewell-tools (/' debian/changelog >"$debian/changelog"
  python3 -B "$debian/crates-copyright" "$1/crates" "$debian/copyright" >"$debian/crates"
  { cat "$debian/copyright" "$debian/crates"; echo; cat "$debian/copyright-licences"; } >"$debian/whole"
  mv "$debian/whole" "$debian/copyright"
  rm "$debian"/{crates,crates-copyright,copyright-licences}
}

# The pinned sources, fetched once as long as their pins and the way to fetch them stay.
fetch_pins() {
  local directory=$1 key
  key=$(cat packaging/tools.txt scripts/tools-build.sh | sha256sum)
  if [[ $(cat "$directory/key" 2>/dev/null) == "$key" ]]; then return; fi
  rm -rf "$directory"
  logged "$PWD/build/packages/pins.log" scripts/get-tools --download "$directory"
  echo "$key" >"$directory/key"
}
