#!/usr/bin/env bash
# Installs the Debian packages the build, the tests and the benchmarks need, if any is missing.
# Runs as root (or with sudo available) on Debian 12.
set -euo pipefail

packages=(
    cmake ninja-build g++ clang libclang-rt-dev pkg-config
    libssl-dev libcurl4-openssl-dev rapidjson-dev
    googletest libgtest-dev libgmock-dev libbenchmark-dev
    python3 openssl g++-multilib libpcap-dev gcovr libasio-dev uuid-dev
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "setup: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
