#!/usr/bin/env bash
# Photographs the tray panel opened from XFCE's panel on a virtual X server and from Waybar on a
# headless Sway, light and dark, into docs/screenshots/{xfce,sway}-panel-{light,dark}.png:
#   scripts/make-desktop-screenshots.sh [build directory]
# Needs the desktops that VANTREL_INSTALL_DESKTOPS=1 scripts/install-deps.sh installs. Dark is
# what a user gets from GTK's dark theme with Qt following GTK (qt6-gtk-platformtheme).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${1:-$root/build}"
out="$root/docs/screenshots"

if [ "${1:-}" = "--inside" ]; then
    variant="$2" binary="$3"
    trap 'kill $(jobs -p) 2>/dev/null || true' EXIT
    if [ "$variant" = dark ]; then
        export GTK_THEME=Adwaita:dark QT_QPA_PLATFORMTHEME=gtk3
    fi
    settings="$XDG_CONFIG_HOME/xfce4/xfconf/xfce-perchannel-xml"
    mkdir -p "$settings"
    cat >"$settings/xfce4-panel.xml" <<'EOF'
<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="30"/>
      <property name="plugin-ids" type="array">
        <value type="int" value="3"/><value type="int" value="1"/><value type="int" value="2"/>
      </property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="separator">
      <property name="expand" type="bool" value="true"/>
      <property name="style" type="uint" value="0"/>
    </property>
    <property name="plugin-2" type="string" value="systray"/>
    <property name="plugin-3" type="string" value="clock"/>
  </property>
</channel>
EOF
    # What a window manager would do: a backdrop, and a work area that leaves the bar free.
    width="$(xdpyinfo | awk '/dimensions:/ { split($2, size, "x"); print size[1] }')"
    height="$(xdpyinfo | awk '/dimensions:/ { split($2, size, "x"); print size[2] }')"
    convert -size "${width}x${height}" gradient:'#6b8396'-'#2e3b47' "$HOME/backdrop.png"
    display -window root "$HOME/backdrop.png" &
    xprop -root -f _NET_WORKAREA 32c -set _NET_WORKAREA "0, 30, $width, $((height - 30))"
    /usr/lib/x86_64-linux-gnu/xfce4/xfconf/xfconfd 2>/dev/null &
    xfce4-panel --disable-wm-check >/dev/null 2>&1 &
    QT_QPA_PLATFORM=xcb "$binary" 2>/dev/null &
    app=$!
    # Ours is the tray's only icon, at the right end of the bar.
    sleep 4
    xdotool mousemove "$((width - 16))" 15 click 1
    sleep 1.5
    xwd -root -silent | convert xwd:- -crop "420x400+$((width - 420))+0" +repage \
        "$OUT/xfce-panel-$variant.png"
    kill "$app"
    exit 0
fi

for tool in xfce4-panel xdotool xwd xprop convert display; do
    command -v "$tool" >/dev/null || { echo "$tool is not installed (VANTREL_INSTALL_DESKTOPS=1 scripts/install-deps.sh)" >&2; exit 1; }
done
cmake --build "$build" --target vantrel
mkdir -p "$out"
# The panel, its settings and Vantrel live in a throwaway home: nothing of the user's is read or
# written.
home="$(mktemp -d)"
trap 'rm -rf "$home"' EXIT
export HOME="$home" XDG_CONFIG_HOME="$home/.config" XDG_CACHE_HOME="$home/.cache" \
    XDG_DATA_HOME="$home/.local/share" XDG_CURRENT_DESKTOP=XFCE
for variant in light dark; do
    OUT="$out" "$root/tests/main/with-xvfb.sh" dbus-run-session -- "$0" --inside "$variant" \
        "$build/bin/vantrel"
    echo "$out/xfce-panel-$variant.png"
done

# The panel on Sway beside Waybar's tray, light and dark: a real session of its own (see
# tests/main/sway-tray-host-end-to-end.sh), which says so in one line and is skipped without Sway.
if cmake --build "$build" --target vantrel virtual_pointer >/dev/null 2>&1; then
    "$root/tests/main/sway-tray-host-end-to-end.sh" "$build/bin/vantrel" "$build/bin/virtual_pointer" \
        "$root/docs/screenshots" || [ $? -eq 77 ]
else
    echo "no Sway screenshots: the virtual_pointer tool needs libwayland-dev"
fi
