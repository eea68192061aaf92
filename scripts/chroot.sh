# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The Tidewell authors
#
# shellcheck disable=SC2016 # what is in single quotes is expanded where it runs
# Chroots of Debian releases; sourced, not run. All that is mounted goes with the process that needed it.

# The mirror of Debian itself that this machine uses.
mirror() {
  apt-get indextargets --format '$(SITE) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
    awk '$1 ~ /debian\/?$/ && $3 == "main" { print $1; exit }'
}

# bootstrap ROOT RELEASE [PACKAGE...]: a small system with that one source line; where this machine has certificates of
# its own, they are trusted there, too, for the way to the mirror may need them.
bootstrap() {
  local root=$1 release=$2 packages options=() own=/usr/local/share/ca-certificates site
  site=$(mirror)
  packages=$(IFS=,; echo "${*:3}")
  if compgen -G "$own/*.crt" >/dev/null; then
    packages+=${packages:+,}ca-certificates
    options+=(--customize-hook="copy-in $own /usr/local/share" --customize-hook='chroot "$1" update-ca-certificates')
  fi
  # How this machine reaches mirrors, proxies and the like, but none of its sources and hooks.
  apt-config dump --no-empty Acquire | grep -v '^Acquire::IndexTargets' >"$root.apt" || true
  mmdebstrap --mode=root --variant=minbase --include="$packages" --aptopt="$root.apt" "${options[@]}" \
    --customize-hook='printf "#!/bin/sh\nexit 101\n" >"$1/usr/sbin/policy-rc.d"; chmod +x "$1/usr/sbin/policy-rc.d"' \
    --dpkgopt=force-unsafe-io "$release" "$root" "deb $site $release main"
}

# within ROOT COMMAND...: as root there, with the network.
within() { enter "" "$@"; }

# offline ROOT USER COMMAND...: as that user, without any network.
offline() {
  local root=$1 user=$2
  shift 2
  enter --net "$root" setpriv --reuid "$user" --regid "$user" --init-groups \
    env HOME="/home/$user" USER="$user" LOGNAME="$user" "$@"
}

enter() {
  local net=$1 root=$2
  shift 2
  unshare --mount --pid --fork --kill-child ${net:+"$net"} -- bash -ec '
    root=$1
    shift
    mount --make-rprivate /
    mount -t proc proc "$root/proc"
    mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
    exec chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
      DEBIAN_FRONTEND=noninteractive "$@"' bash "$root" "$@" </dev/null
}
