#!/usr/bin/env bash
# Installs everything the build, the tests and the disc tools need on a
# fresh Debian machine. Safe to run again.
set -euo pipefail
pkgs=(cmake g++ make googletest libgtest-dev libbenchmark-dev libcli11-dev nlohmann-json3-dev
      jq clang clang-format libclang-rt-dev pkg-config dvdauthor lsdvd ffmpeg)
missing=()
for p in "${pkgs[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -ne 0 ] && SUDO=sudo
  $SUDO apt-get update -qq
  # Disc tools are optional: tests that need them skip visibly without them.
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq "${missing[@]}" \
    || DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq \
         cmake g++ make googletest libgtest-dev libcli11-dev nlohmann-json3-dev pkg-config
fi
