#!/usr/bin/env bash
# Installs what building and testing qo needs on Debian (run as root).
# Skips apt-get entirely when everything is already there.
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-dev libgtest-dev googletest libbenchmark-dev
          g++-mingw-w64-x86-64-posix wine wine64 libxml2-utils lldb pkgconf)
if [ "${1:-}" = "--linux-only" ]; then
  packages=(cmake ninja-build g++)
fi
missing=()
for p in "${packages[@]}"; do
  dpkg -s "$p" >/dev/null 2>&1 || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "== installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
