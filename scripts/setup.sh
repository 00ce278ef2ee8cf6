#!/usr/bin/env bash
# Installs every Debian package the library, its tests, benchmarks and the tour need.
# Idempotent: packages already present are skipped and nothing is printed for them.
set -euo pipefail

packages=(
    # build
    build-essential cmake ninja-build pkg-config git
    # library dependencies
    qtbase5-dev qt6-base-dev libzip-dev
    libcurl4-openssl-dev liblz4-dev libqrencode-dev rapidjson-dev libgmp-dev
    liblog4cplus-dev
    # tests and benchmarks: reference peers nobody here wrote
    openssl libssl-dev protobuf-compiler libprotobuf-dev
    zbar-tools qrencode nginx-light curl zip unzip python3 time
    libbenchmark-dev clang libclang-rt-14-dev
    dbus
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "ok installed"; then
        missing+=("$p")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
    SUDO="sudo"
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
# nginx-light starts a system service on install; the tests run their own instances.
if command -v systemctl >/dev/null 2>&1 && systemctl is-active --quiet nginx 2>/dev/null; then
    $SUDO systemctl stop nginx || true
fi
