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

helper="$1" build_dir="$2"
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
packaged_helper=/usr/libexec/vantrel/vantrel-tracker

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

# Never take over what someone installed on purpose: the test would remove it afterwards.
if dpkg-query -W -f='${db:Status-Status}' vantrel 2>/dev/null | grep -qv '^not-installed$'; then
    echo "FAILED: vantrel is already installed here; remove it before running this test" >&2
    exit 1
fi
if [ -e "$packaged_helper" ]; then
    echo "FAILED: $packaged_helper already exists; this test would replace it" >&2
    exit 1
fi

deb="${VANTREL_PACKAGE:-}"
if [ -z "$deb" ]; then
    deb="$("$root/scripts/build-package.sh" "$build_dir" | tail -n 1)"
fi
deb="$(cd "$(dirname "$deb")" && pwd)/$(basename "$deb")"
version="$(dpkg-deb -f "$deb" Version)"

work="$(mktemp -d)" installed=false helper_copied=false pulled_in=()
cleanup() {
    set +e
    if $helper_copied; then as_root rm -f "$packaged_helper"; fi
    if $installed; then apt purge vantrel "${pulled_in[@]}" >"$work/purge.log" 2>&1 ||
        cat "$work/purge.log" >&2; fi
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# shellcheck source=../scripts/checks.sh
source "$(dirname "$0")/../scripts/checks.sh"

# --- The package file, before installing.
echo "lintian on $(basename "$deb"):"
lintian "$deb" 2>&1 | grep -v 'running with root privileges' | sed 's/^/  /' |
    tee "$work/lintian" || true
check "lintian reports no errors" bash -c "! grep -q '^  E:' '$work/lintian'"
depends="$(dpkg-deb -f "$deb" Depends)"
check "the run-time dependencies are declared" bash -c \
    "grep -qw libqt6svg6 <<<'$depends' && grep -qw xdg-utils <<<'$depends' \
     && grep -qw libqt6widgets6 <<<'$depends' && grep -qw libsecret-1-0 <<<'$depends'"
check "a Secret Service provider is recommended" bash -c \
    "dpkg-deb -f '$deb' Recommends | grep -qw gnome-keyring"
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
desktop=/usr/share/applications/com.keldor.Vantrel.desktop
icon=/usr/share/icons/hicolor/scalable/apps/com.keldor.Vantrel.svg
check "AppStream validates the metadata" appstreamcli validate --no-net "$metainfo"
check "the metadata's newest release is the packaged version" \
    grep -q "<release version=\"$version\"" "$metainfo"
check "the desktop entry validates" desktop-file-validate "$desktop"
check "the icon is in the hicolor theme" test -s "$icon"
for page in vantrel vantrel-launchctl; do
    check "man $page renders without warnings" bash -c \
        "out=\$(MANWIDTH=80 man --warnings $page 2>&1 >/dev/null) && [ -z \"\$out\" ] \
         && MANWIDTH=80 man $page 2>/dev/null | grep -q '^NAME'"
    check "man $page names the packaged version" bash -c \
        "zcat /usr/share/man/man1/$page.1.gz | grep -q '^\\.TH .*\"Vantrel $version\"'"
done

# --- Running it: first without the helper, then with the scripted one at the packaged path.
# The session copies the helper into /usr; it goes again whatever becomes of the session.
helper_copied=true
VANTREL_TEST_ROOT_COMMAND="${sudo[*]}" "$root/tests/scripts/with-keyring.sh" \
    "$here/packaged-session.sh" "$helper" "$packaged_helper" >"$work/session.log" 2>&1 &&
    session=0 || session=$?
sed 's/^/  /' "$work/session.log"
check "the installed application runs as packaged" test "$session" -eq 0

# --- Removing it: nothing of ours may stay.
as_root rm -f "$packaged_helper"
helper_copied=false
apt purge vantrel "${pulled_in[@]}" >"$work/purge.log" 2>&1 || cat "$work/purge.log" >&2
installed=false
check "the package is gone, configuration included" bash -c \
    "! dpkg-query -W -f='\${db:Status-Status}' vantrel 2>/dev/null | grep -qv '^not-installed$'"
check "the packages apt added for it are gone" bash -c \
    "for p in ${pulled_in[*]:-}; do ! dpkg-query -W -f='\${db:Status-Status}' \$p 2>/dev/null \
     | grep -q '^installed$' || exit 1; done"
left=()
for file in "${files[@]}" "$packaged_helper"; do
    [ -d "$file" ] && [[ "$file" != */vantrel ]] && continue
    if [ -e "$file" ] || [ -L "$file" ]; then left+=("$file"); fi
done
check "no file or folder of the package is left${left:+: ${left[*]}}" test ${#left[@]} -eq 0

finish "package install"
