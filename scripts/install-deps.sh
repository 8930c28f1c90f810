#!/usr/bin/env bash
# Installs the Debian packages that building, testing and benchmarking libvantu need.
# Idempotent: packages already present are left alone, and apt is not touched at all
# when nothing is missing.
set -euo pipefail

packages=(
  build-essential cmake pkg-config clang clang-format libclang-rt-14-dev
  libpoco-dev libutf8proc-dev libpugixml-dev libminizip-dev
  libcurl4-openssl-dev zlib1g-dev libbz2-dev liblzma-dev libzstd-dev libdeflate-dev
  libgtest-dev libgmock-dev libbenchmark-dev libspdlog-dev
  unicode-data locales
  libicu-dev
  ca-certificates curl openssl
  zip unzip python3 libarchive-tools zstd xz-utils strace
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if ((${#missing[@]})); then
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  echo "Installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
