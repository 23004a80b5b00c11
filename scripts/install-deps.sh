#!/usr/bin/env bash
# Installs the Debian 12 packages the build, the tests and the demo need,
# and only those that are missing. With "deb": also what `make deb` needs.
set -euo pipefail
pkgs=(make g++ cmake ninja-build pkg-config qtbase5-dev libqt5xml5 libquazip1-qt5-dev zlib1g-dev
      libssl-dev openssl libbenchmark-dev zip unzip ca-certificates man-db
      clang libclang-rt-14-dev lld)
if [ "${1:-}" = deb ]; then
  pkgs+=(dpkg-dev file lintian)
fi
missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "Installing: ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
