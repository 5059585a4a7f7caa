#!/usr/bin/env bash
# Installs every Debian 12 package that building, running and testing Kavot needs.
# Idempotent: asks apt only for what is missing, and refreshes the package lists only then.
set -euo pipefail

PACKAGES=(
  # build
  build-essential cmake ninja-build pkg-config git ccache
  # Qt 6.4
  qt6-base-dev qt6-base-dev-tools libqt6opengl6-dev qt6-qpa-plugins libgl-dev
  libgl1-mesa-dri fonts-dejavu-core
  # media
  libavformat-dev libavcodec-dev libavutil-dev libswscale-dev libswresample-dev ffmpeg
  portaudio19-dev libsndfile1-dev
  # file formats
  libjsoncpp-dev zlib1g-dev libminizip-dev libxlsxwriter-dev
  # synchronisation and plots
  libfftw3-dev qt6-charts-dev qt6-svg-dev
  # looking at the app headless, and a sound device without a sound card
  xvfb xauth imagemagick xdotool pulseaudio pulseaudio-utils libasound2-plugins alsa-utils
  # demo speech
  espeak-ng
  # fuzzing and sanitizers; binutils for symbolising crash reports
  clang libclang-rt-14-dev binutils
)

missing=()
for p in "${PACKAGES[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all ${#PACKAGES[@]} packages present"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  if command -v sudo >/dev/null 2>&1; then
    SUDO="sudo"
  else
    echo "install-deps: need root or sudo to install: ${missing[*]}" >&2
    exit 1
  fi
fi

echo "install-deps: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
