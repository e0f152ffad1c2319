#!/usr/bin/env bash
# Installs what Vorlix needs to build and test, from Debian's packages. Does nothing when all of it
# is present already.
set -euo pipefail

packages=(cmake ninja-build g++ googletest libgtest-dev
          g++-mingw-w64-x86-64-posix mingw-w64-tools binutils-mingw-w64-x86-64
          wine wine64 python3 python3-pytest libcups2-dev zlib1g-dev libz-mingw-w64-dev
          cups cups-client cups-daemon cups-bsd fonts-dejavu-core rlpr
          clang-14 libclang-rt-14-dev libssl-dev openssl)

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
sudo_cmd=()
[ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
"${sudo_cmd[@]}" apt-get update -qq
DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" >/dev/null
