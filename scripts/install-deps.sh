#!/usr/bin/env bash
# Installs what Velmorando needs from Debian's packages, and nothing when all is there.
# --bench also installs OpenCV, which only the benchmarks use as a baseline to compare with.
# --fuzz also installs clang and its runtime (libFuzzer and the sanitizers) for `make fuzz`.
# poppler-utils (pdftoppm, pdfinfo) lets the printing test look at the page it printed to a PDF.
set -euo pipefail

PACKAGES=(
  g++ make cmake ninja-build pkg-config
  qt6-base-dev qt6-base-dev-tools qt6-image-formats-plugins
  libpng-dev libturbojpeg0-dev libjpeg62-turbo-dev libtiff-dev libgif-dev
  libeigen3-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  fonts-wqy-zenhei xvfb xauth xdotool imagemagick
  poppler-utils
)

for arg in "$@"; do
  case "$arg" in
    --bench) PACKAGES+=(libopencv-dev libopencv-contrib-dev) ;;
    --fuzz) PACKAGES+=(clang libclang-rt-14-dev) ;;
    *) echo "install-deps: unknown option $arg (known: --bench, --fuzz)" >&2; exit 2 ;;
  esac
done

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "install-deps: installing ${missing[*]}"
SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then SUDO="sudo"; else
    echo "install-deps: need root (or sudo) to install: ${missing[*]}" >&2
    exit 1
  fi
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "install-deps: done"
