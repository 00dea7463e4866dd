#!/usr/bin/env bash
# Installs the Debian packages that building, testing and the demo need,
# and only those that are missing. Works as root or through sudo, with no
# standard input.
set -euo pipefail

packages=(
  cmake ninja-build g++ pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  libasound2-dev libcurl4-openssl-dev libcli11-dev
  libfreetype-dev libfontconfig-dev libpng-dev fonts-dejavu-core fonts-wqy-microhei
  libgtk-3-dev
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev ffmpeg
  espeak-ng sox tmux xvfb xdotool pango1.0-tools
  python3 python3-pyftpdlib python3-pytest openssl
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo -n); fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo_cmd[@]}" apt-get update -qq
"${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" </dev/null
