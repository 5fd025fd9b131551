#!/usr/bin/env bash
# Installs everything a fresh Debian machine lacks to build, run and test
# KavriLib on both targets. Safe to run again: it only does what is missing.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
deps="$root/.deps"
sysroot="$deps/armhf-sysroot"
stamp_version=4   # bump when the package lists below change

host_packages=(
  build-essential cmake ninja-build ccache pkg-config git
  googletest libgtest-dev libgmock-dev libbenchmark-dev
  libjpeg-dev libsdl2-dev libsdl2-ttf-dev fonts-liberation
  g++-arm-linux-gnueabihf qemu-user
  libcli11-dev nlohmann-json3-dev libcpp-httplib-dev libpng-dev zlib1g-dev
  console-setup-linux clang-14
  chromium chromium-driver python3-selenium
)

# Run-time libraries for the armhf build; their dependency closure is added.
armhf_runtime=(libjpeg62-turbo libsdl2-2.0-0 libsdl2-ttf-2.0-0 libbenchmark1debian libcpp-httplib0.11)
# Development files only for what we link against directly.
armhf_dev=(libjpeg62-turbo-dev libsdl2-dev libsdl2-ttf-dev libbenchmark-dev zlib1g-dev libcpp-httplib-dev libssl-dev libbrotli-dev)
# Provided by the cross tool chain itself.
armhf_skip='^(libc6|libgcc-s1|libstdc\+\+6|gcc-12-base|libcrypt1|debconf|perl-base|dpkg|tar|install-info)$'

log() { printf 'setup: %s\n' "$*"; }

install_host_packages() {
  local missing=()
  for p in "${host_packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
  [ ${#missing[@]} -eq 0 ] && return
  log "installing ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -eq 0 ] || sudo=sudo
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# A private apt world for armhf: the machine's own dpkg is never told about a
# second architecture, so its indexes cannot get out of step with ours.
armhf_apt() {
  local tool=$1; shift
  "$tool" -o Dir::State="$deps/apt-armhf/state" -o Dir::Cache="$deps/apt-armhf/cache" \
          -o Dir::State::status="$deps/apt-armhf/state/status" \
          -o APT::Architecture=armhf -o APT::Architectures::=armhf \
          -o Debug::NoLocking=1 -o APT::Sandbox::User=root -qq "$@"
}

armhf_closure() {
  armhf_apt apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts \
      --no-breaks --no-replaces --no-enhances --no-pre-depends "${armhf_runtime[@]}" |
    grep -v '^ ' | grep -v '^<' | sed 's/:armhf$//' | sort -u | grep -Ev "$armhf_skip"
}

build_armhf_sysroot() {
  local stamp="$sysroot/.complete-$stamp_version"
  [ -f "$stamp" ] && return
  log "building the armhf sysroot in $sysroot"
  rm -rf "$sysroot" "$deps/apt-armhf"
  mkdir -p "$deps/apt-armhf/state/lists/partial" "$deps/apt-armhf/cache/archives/partial" "$deps/debs"
  touch "$deps/apt-armhf/state/status"
  # A mirror caught mid-sync fails one index; the others still serve.
  armhf_apt apt-get update || log "some armhf indexes failed to download; going on with the rest"
  ls "$deps/apt-armhf/state/lists/"*_Packages* >/dev/null 2>&1 || { log "no armhf index could be fetched"; exit 1; }
  local packages
  packages=$( { armhf_closure; printf '%s\n' "${armhf_dev[@]}"; } | sort -u)
  log "fetching $(echo "$packages" | wc -l) armhf packages"
  (cd "$deps/debs" && rm -f ./*.deb && armhf_apt apt-get download $(echo "$packages" | sed 's/$/:armhf/'))
  mkdir -p "$sysroot"
  for deb in "$deps/debs"/*.deb; do dpkg-deb -x "$deb" "$sysroot"; done
  fix_absolute_links
  touch "$stamp"
}

# Debian's -dev packages link libfoo.so to absolute paths; point them inside.
fix_absolute_links() {
  find "$sysroot" -type l | while read -r link; do
    local target
    target=$(readlink "$link")
    case "$target" in
      /*) ln -sfn "$sysroot$target" "$link" ;;
    esac
  done
}

# The controller's libjpeg speaks API version 8 (libjpeg.so.8), which Debian
# does not ship: build libjpeg-turbo from Debian's own source package with its
# jpeg8 emulation, for armhf, into a prefix of its own inside the sysroot so
# that nothing of the API-62 packages is mixed in.
jpeg8_prefix="$sysroot/opt/libjpeg8"
jpeg8_version=1   # bump when the build below changes

build_armhf_jpeg8() {
  local stamp="$sysroot/.libjpeg8-$jpeg8_version"
  [ -f "$stamp" ] && return
  log "building libjpeg-turbo with the jpeg8 API for armhf"
  local apt_src="$deps/apt-src" work="$deps/libjpeg8-build"
  rm -rf "$apt_src" "$work" "$jpeg8_prefix"
  mkdir -p "$apt_src/state/lists/partial" "$apt_src/cache/archives/partial" "$work"
  echo "deb-src http://deb.debian.org/debian bookworm main" > "$apt_src/sources.list"
  local src_apt=(-o Dir::Etc::SourceList="$apt_src/sources.list" -o Dir::Etc::SourceParts=/dev/null
                 -o Dir::State="$apt_src/state" -o Dir::Cache="$apt_src/cache"
                 -o Debug::NoLocking=1 -o APT::Sandbox::User=root -qq)
  apt-get "${src_apt[@]}" update
  (cd "$work" && apt-get "${src_apt[@]}" source --download-only libjpeg-turbo &&
     dpkg-source --no-check -x libjpeg-turbo_*.dsc source >/dev/null)
  cmake -S "$work/source" -B "$work/build" -G Ninja -Wno-dev \
    -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=arm \
    -DCMAKE_C_COMPILER=arm-linux-gnueabihf-gcc -DCMAKE_BUILD_TYPE=Release \
    -DWITH_JPEG8=ON -DENABLE_STATIC=OFF -DWITH_TURBOJPEG=OFF \
    -DCMAKE_INSTALL_PREFIX="$jpeg8_prefix" -DCMAKE_INSTALL_LIBDIR=lib >/dev/null
  cmake --build "$work/build" --target jpeg -j "$(nproc)" >/dev/null
  mkdir -p "$jpeg8_prefix/include" "$jpeg8_prefix/lib"
  cp "$work/source/jpeglib.h" "$work/source/jmorecfg.h" "$work/source/jerror.h" \
     "$work/build/jconfig.h" "$jpeg8_prefix/include/"
  cp -P "$work/build"/libjpeg.so* "$jpeg8_prefix/lib/"
  rm -rf "$work" "$apt_src"
  touch "$stamp"
}

install_host_packages
build_armhf_sysroot
build_armhf_jpeg8
log "ready"
