#!/usr/bin/env bash
# Installs, with apt-get, the Debian packages that building and testing need
# and that are not there yet. Safe to run again.
set -euo pipefail
needed=(cmake g++ make pkg-config libgtest-dev libbenchmark-dev libpng-dev)
# objdump, for the test that no fused multiply-add is in the library.
needed+=(binutils)
missing=()
for p in "${needed[@]}"; do
  dpkg -s "$p" > /dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
