#!/usr/bin/env bash
# Installs the Debian packages that Tavrek builds and tests with, when any is missing.
set -euo pipefail
packages=(cmake g++ make libtclap-dev libtbb-dev libgtest-dev libbenchmark-dev python3 clang-14 libclang-rt-14-dev
          python3-numpy python3-matplotlib python3-tqdm python3-pytest python3-distributed python3-psutil chromium)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  [ "$(id -u)" -ne 0 ] && sudo_cmd="sudo"
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
