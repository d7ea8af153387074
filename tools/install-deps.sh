#!/usr/bin/env bash
# Installs what building and testing Nuvrel needs, and only what is missing.
# Debian 12 (apt-get, as root or through sudo) and macOS (Homebrew).
set -euo pipefail

debian_packages=(
  cmake ninja-build g++ pkg-config ccache git
  qt6-base-dev qt6-svg-dev qt6-translations-l10n libheif-dev
  libplist-dev libssl-dev libsqlite3-dev sqlite3 qtkeychain-qt6-dev libicu-dev
  libsecret-1-0 gnome-keyring dbus libsecret-tools fonts-dejavu-core poppler-utils
  polkitd libxml2-utils curl
  ffmpeg libheif-examples
  fonts-noto-core fonts-noto-cjk fonts-noto-color-emoji fonts-symbola
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev clang-format clang-tidy
  libplist-utils xvfb xauth xclip
  rapidjson-dev libzip-dev zip unzip jq
  libexiv2-dev exiv2 qt6-pdf-dev libpoppler-qt6-dev qt6-image-formats-plugins libvips-tools ghostscript
  jdupes rmlint python3-cryptography age
  libqrencode-dev zbar-tools nginx wrk chromium
  libimobiledevice-dev libusbmuxd-dev rsync time
)
brew_packages=(cmake ninja pkg-config ccache qt libplist openssl@3 sqlite icu4c qtkeychain poppler ffmpeg libheif googletest google-benchmark llvm
  rapidjson libzip jq exiv2 vips ghostscript jdupes rmlint age qrencode zbar nginx wrk libimobiledevice rsync gnu-time)

case "$(uname -s)" in
Linux)
  missing=()
  for package in "${debian_packages[@]}"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
  done
  if [ ${#missing[@]} -eq 0 ]; then
    exit 0
  fi
  echo "Installing: ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
  ;;
Darwin)
  command -v brew >/dev/null || { echo "Homebrew is needed: https://brew.sh" >&2; exit 1; }
  for package in "${brew_packages[@]}"; do
    brew list --formula "$package" >/dev/null 2>&1 || brew install "$package"
  done
  ;;
*)
  echo "Unsupported system: $(uname -s)" >&2
  exit 1
  ;;
esac
