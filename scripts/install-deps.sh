#!/usr/bin/env bash
# Installs what building, running and testing Vantrel needs on Debian 12. Safe to run again:
# when every package is already there it changes nothing and needs no network.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  qt6-base-dev qt6-base-dev-tools libgl-dev qcoro-qt6-dev libsecret-1-dev
  # The XEmbed tray's selection is followed on Qt's own X connection.
  libxcb1-dev
  libgtest-dev libgmock-dev googletest
  # Real services the tests start: a private D-Bus session with a keyring, a throwaway
  # certificate authority, and the desktop-entry validator.
  dbus-daemon dbus-bin gnome-keyring libsecret-tools openssl desktop-file-utils python3
  # The demo presses the application's actions over D-Bus.
  libglib2.0-bin
  # Windows under a virtual X server (xdpyinfo tells when it is up), and the formatter the tests
  # check against.
  xvfb xauth x11-utils clang-format
  # Building the Debian package and checking it as Debian does; the package's own run-time
  # dependencies, so installing it in the tests adds nothing to the machine.
  debhelper dpkg-dev lintian appstream man-db xdg-utils
  # The SVG plugins: without them every icon, ours or a theme's, draws blank.
  libqt6svg6
  # The tray end-to-end test: a stand-in tray host over D-Bus, the accessibility bus and its
  # Python client, and screenshots of a virtual screen.
  python3-dbus python3-gi python3-pyatspi at-spi2-core x11-apps imagemagick
  # The fuzz targets: clang with libFuzzer and the sanitizer runtimes.
  clang libclang-rt-14-dev
  # The windows end-to-end test reads what Copy Diagnostics put on the clipboard.
  xclip
)

# Real tray hosts for their end-to-end tests. Desktop shells are a lot to put on someone's own
# workstation: only in CI or when asked (VANTREL_INSTALL_DESKTOPS=1); without them those tests
# skip.
if [ "${CI:-}" = "true" ] || [ "${VANTREL_INSTALL_DESKTOPS:-}" = "1" ]; then
  packages+=(xfce4-panel xfconf trayer xdotool)
  # Sway with Waybar's tray, its screenshots and typed keys, Qt's Wayland plugin, and the Wayland
  # client library and scanner our virtual pointer is built with.
  packages+=(sway waybar grim wtype qt6-wayland libwayland-dev)
  # GNOME Shell with its AppIndicator extension; Vantrel beside it on Qt's Wayland plugin.
  packages+=(gnome-shell gnome-shell-extension-appindicator xwayland)
  # The dark screenshots on XFCE: Qt following GTK's dark theme.
  packages+=(qt6-gtk-platformtheme)
fi

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then
  sudo="sudo"
fi
echo "Installing: ${missing[*]}"
$sudo apt-get update -q
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
