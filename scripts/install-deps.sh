#!/usr/bin/env bash
# Installs the Debian packages the build needs, and only those that are missing.
# Further package names given as arguments are installed the same way (make demo adds its
# photographs).
set -euo pipefail
packages=(
  ca-certificates cmake ninja-build g++ clang libclang-rt-14-dev make binutils pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev libopencv-contrib-dev
  libvips-dev libsqlite3-dev libcli11-dev nlohmann-json3-dev
  python3 python3-dev python3-pybind11 pybind11-dev python3-numpy python3-pytest python3-pil
  python3-pip python3-venv python3-setuptools python3-wheel
  python3-distributed
  chromium  # only the review page's browser test starts it, and is skipped without it
  "$@"
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "installing: ${missing[*]}"
  sudo_cmd=""
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "install-deps: these packages are missing; run this as root (a bare system has no sudo)" >&2
      exit 1
    fi
    sudo_cmd="sudo"
  fi
  $sudo_cmd apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${missing[@]}"
fi
