#!/usr/bin/env bash
# Installs the Debian package on this machine the way a user would (apt resolves its
# dependencies), checks it the way Debian checks packages, runs the installed application in a
# throwaway session with a scripted tracker helper at the packaged path, then purges it and
# whatever apt installed for it, and checks that nothing of it is left.
#
#   package-install.sh <fake tracker helper> <directory to build the package in>
#
# The package is $VANTREL_PACKAGE when set (scripts/test.sh builds it once), otherwise it is
# built here. Needs root or passwordless sudo; exits 77 (skipped) without. Whatever happens, the
# machine's /usr is restored on exit.
set -euo pipefail

here="$(cd "$(dirname "$0")" && pwd)"
packaged_helper=/usr/libexec/vantrel/vantrel-tracker
# shellcheck source=../scripts/checks.sh
source "$here/../scripts/checks.sh"

# The session, run by the install below under with-keyring.sh: the installed application with a
# key in the keyring, first without its tracker helper, then with the scripted one copied to the
# packaged path by $VANTREL_TEST_ROOT_COMMAND (for example "sudo -n").
if [ "${1:-}" = --session ]; then
    read -r -a as_root <<<"${VANTREL_TEST_ROOT_COMMAND:-}"
    work="$(mktemp -d)" app_pid=""
    trap '[ -z "$app_pid" ] || kill -KILL "$app_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
    start_app() { /usr/bin/vantrel >"$work/$1.out" 2>&1 & app_pid=$!; }
    stop_app() {
        kill -TERM "$app_pid" && wait_for 10 bash -c "! kill -0 $app_pid 2>/dev/null" &&
            wait "$app_pid" && app_pid=""
    }

    mkdir -p "$HOME/.vantrel" "$work/record"
    export XDG_CONFIG_HOME="$HOME/.config" QT_QPA_PLATFORM=offscreen
    printf '%s' "packaged-key-$RANDOM" |
        secret-tool store --label=Vantrel service com.keldor.vantrel account tracker-api-key
    status_document "$packaged_helper" >"$work/status.json"
    # The helper reads its script from the configuration file.
    printf '%s\n' run.read-key "run.record $work/record" run.wait-stdin-eof \
        "status.stdout-file $work/status.json" >"$HOME/.vantrel/config.toml"

    start_app missing
    check "without its helper it says where the package expects it" wait_for 20 \
        grep -qF "Tracker helper is missing at $packaged_helper." "$work/missing.out"
    check "it quits on SIGTERM" stop_app
    "${as_root[@]}" install -m 755 "$2" "$packaged_helper"
    start_app tracking
    check "the helper at the packaged path is launched" wait_for 20 test -e "$work/record/pid"
    check "the status line reports tracking" wait_for 20 grep -q "^Vantrel: Tracking" \
        "$work/tracking.out"
    helper_pid="$(cat "$work/record/pid" 2>/dev/null || echo 0)"
    check "it quits on SIGTERM" stop_app
    check "quitting stops the helper" wait_for 10 bash -c "! kill -0 $helper_pid 2>/dev/null"
    tail -n +1 "$work"/*.out
    finish "packaged session"
    exit
fi

helper="$1" build_dir="$2"
sudo=()
if [ "$(id -u)" -ne 0 ]; then
    if ! sudo -n true 2>/dev/null; then
        echo "SKIPPED: installing a package needs root or passwordless sudo"
        exit 77
    fi
    sudo=(sudo -n)
fi
as_root() { "${sudo[@]}" "$@"; }
apt() { as_root env DEBIAN_FRONTEND=noninteractive apt-get -y -q -o DPkg::Lock::Timeout=300 "$@"; }
# absent <package>…: whether dpkg knows none of them as more than "not-installed".
absent() {
    for package; do
        ! dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null |
            grep -qv '^not-installed$' || return 1
    done
}

# Never take over what someone installed on purpose: the test would remove it afterwards.
if ! absent vantrel || [ -e "$packaged_helper" ]; then
    echo "FAILED: vantrel or $packaged_helper is already here; remove it first" >&2
    exit 1
fi

deb="${VANTREL_PACKAGE:-$("$here/../../scripts/build-package.sh" "$build_dir" | tail -n 1)}"
deb="$(cd "$(dirname "$deb")" && pwd)/$(basename "$deb")"
version="$(dpkg-deb -f "$deb" Version)"

work="$(mktemp -d)" installed=false pulled_in=()
remove() {
    as_root rm -f "$packaged_helper"
    apt purge vantrel "${pulled_in[@]}" >"$work/purge.log" 2>&1 || cat "$work/purge.log" >&2
}
trap 'set +e; if $installed; then remove; fi; rm -rf "$work"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# --- The package file, before installing.
echo "lintian on $(basename "$deb"):"
lintian "$deb" 2>&1 | grep -v 'running with root privileges' | sed 's/^/  /' |
    tee "$work/lintian" || true
check "lintian reports no errors" bash -c "! grep -q '^  E:' '$work/lintian'"
for package in libqt6svg6 libqt6widgets6 libsecret-1-0 xdg-utils; do
    check "$package is a declared dependency" grep -qw "$package" <<<"$(dpkg-deb -f "$deb" Depends)"
done
check "a Secret Service provider is recommended" grep -qw gnome-keyring \
    <<<"$(dpkg-deb -f "$deb" Recommends)"
dpkg-deb -c "$deb" | awk '$1 ~ /x/ && $1 !~ /^d/ { print $NF }' >"$work/programs"
check "the programs are exactly the application and the launchctl stand-in" diff -u \
    <(printf '%s\n' ./usr/bin/vantrel ./usr/libexec/vantrel/vantrel-launchctl) "$work/programs"

# --- Installing: apt tells beforehand which packages it adds, so exactly those go again.
mapfile -t pulled_in < <(apt install --no-install-recommends -s "$deb" |
    awk '$1 == "Inst" && $2 != "vantrel" { print $2 }')
installed=true
apt install --no-install-recommends "$deb" >"$work/install.log" 2>&1 || {
    cat "$work/install.log" >&2
    echo "FAILED: the package does not install" >&2
    exit 1
}
mapfile -t files < <(dpkg -L vantrel)
echo "installed; apt added for it: ${pulled_in[*]:-nothing}"

metainfo=/usr/share/metainfo/com.keldor.Vantrel.metainfo.xml
check "AppStream validates the metadata" appstreamcli validate --no-net "$metainfo"
check "the metadata's newest release is the packaged version" \
    grep -q "<release version=\"$version\"" "$metainfo"
check "the desktop entry validates" \
    desktop-file-validate /usr/share/applications/com.keldor.Vantrel.desktop
check "the icon is in the hicolor theme" \
    test -s /usr/share/icons/hicolor/scalable/apps/com.keldor.Vantrel.svg
for page in vantrel vantrel-launchctl; do
    check "man $page renders without warnings" bash -c \
        "out=\$(MANWIDTH=80 man --warnings $page 2>&1 >/dev/null) && [ -z \"\$out\" ] \
         && MANWIDTH=80 man $page 2>/dev/null | grep -q '^NAME'"
    check "man $page names the packaged version" bash -c \
        "zcat /usr/share/man/man1/$page.1.gz | grep -q '^\\.TH .*\"Vantrel $version\"'"
done

# --- Running it: the session copies the helper into /usr; remove() takes it away again.
check "the installed application runs as packaged" env VANTREL_TEST_ROOT_COMMAND="${sudo[*]}" \
    "$here/../scripts/with-keyring.sh" "$here/package-install.sh" --session "$helper"

# --- Removing it: nothing of ours may stay.
remove
installed=false
check "the package is gone, configuration included" absent vantrel
check "the packages apt added for it are gone" absent "${pulled_in[@]}"
left=()
for file in "${files[@]}" "$packaged_helper"; do
    [ -d "$file" ] && [[ "$file" != */vantrel ]] && continue
    if [ -e "$file" ] || [ -L "$file" ]; then left+=("$file"); fi
done
check "no file or folder of the package is left${left:+: ${left[*]}}" test ${#left[@]} -eq 0

finish "package install"
