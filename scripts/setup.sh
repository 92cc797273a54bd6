#!/usr/bin/env bash
# Installs what the build, the tests and the tools need, only when missing;
# given package names, installs those instead (the cross compilers, clang,
# valgrind: what only one script needs).
set -euo pipefail

packages=("$@")
[ ${#packages[@]} -gt 0 ] || packages=(
  build-essential cmake pkg-config googletest libgtest-dev
  android-libutils-dev android-liblog-dev android-libbase-dev
  zlib1g-dev nlohmann-json3-dev libtinyxml2-dev libcairo2-dev
  ffmpeg mkvtoolnix libavformat-dev libavcodec-dev libavutil-dev libwebm-dev python3
  gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-plugins-ugly
  gstreamer1.0-plugins-bad gstreamer1.0-libav
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}" >&2
SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq >/dev/null
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
