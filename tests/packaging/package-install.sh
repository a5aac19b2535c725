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
# key in the keyring and the scripted helper at the packaged path.
if [ "${1:-}" = --session ]; then
    work="$(mktemp -d)" app_pid=""
    trap '[ -z "$app_pid" ] || kill -KILL "$app_pid" 2>/dev/null || true; rm -rf "$work"' EXIT
    mkdir -p "$HOME/.vantrel" "$work/record"
    printf '%s' "packaged-key-$RANDOM" |
        secret-tool store --label=Vantrel service com.keldor.vantrel account tracker-api-key
    status_document "$packaged_helper" >"$work/status.json"
    # The helper reads its script from the configuration file.
    printf '%s\n' run.read-key "run.record $work/record" run.wait-stdin-eof \
        "status.stdout-file $work/status.json" >"$HOME/.vantrel/config.toml"
    QT_QPA_PLATFORM=offscreen /usr/bin/vantrel >"$work/app.out" 2>&1 &
    app_pid=$!
    check "the helper at the packaged path is launched" wait_for 20 test -e "$work/record/pid"
    check "the status line reports tracking" \
        wait_for 20 grep -q "^Vantrel: Tracking" "$work/app.out"
    cat "$work/app.out"
    finish "packaged session"
    exit
fi

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
# Whether dpkg knows vantrel as no more than "not-installed".
absent() { ! dpkg-query -W -f='${db:Status-Status}' vantrel 2>/dev/null | grep -qv '^not-installed$'; }

# Never take over what someone installed on purpose: the test would remove it afterwards.
if ! absent || [ -e "$packaged_helper" ]; then
    echo "FAILED: vantrel or $packaged_helper is already here; remove it first" >&2
    exit 1
fi

deb="$(realpath "${VANTREL_PACKAGE:-$("$here/../../scripts/build-package.sh" "$2" | tail -n 1)}")"
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
lintian "$deb" 2>&1 | grep -v 'running with root privileges' | tee "$work/lintian" || true
check "lintian reports no errors" bash -c "! grep -q '^E:' '$work/lintian'"
for package in libqt6svg6 libsecret-1-0 xdg-utils gnome-keyring; do
    check "$package is declared" grep -qw "$package" <<<"$(dpkg-deb -f "$deb" Depends Recommends)"
done
dpkg-deb -c "$deb" | awk '$1 ~ /x/ && $1 !~ /^d/ { print $NF }' >"$work/programs"
check "the programs are exactly the application and the launchctl stand-in" diff -u \
    <(printf '%s\n' ./usr/bin/vantrel ./usr/libexec/vantrel/vantrel-launchctl) "$work/programs"

# --- Installing: apt tells beforehand which packages it adds, so exactly those go again.
mapfile -t pulled_in < <(apt install --no-install-recommends -s "$deb" |
    awk '$1 == "Inst" && $2 != "vantrel" { print $2 }')
installed=true
check "the package installs" apt install --no-install-recommends "$deb"
mapfile -t files < <(dpkg -L vantrel)

metainfo=/usr/share/metainfo/com.keldor.Vantrel.metainfo.xml
check "AppStream validates the metadata" appstreamcli validate --no-net "$metainfo"
check "the metadata's newest release is the packaged version" \
    grep -q "<release version=\"$version\"" "$metainfo"
check "the icon is in the hicolor theme" \
    test -s /usr/share/icons/hicolor/scalable/apps/com.keldor.Vantrel.svg
for page in vantrel vantrel-launchctl; do
    check "man $page renders without warnings and names the packaged version" bash -c \
        "[ -z \"\$(MANWIDTH=80 man --warnings $page 2>&1 >/dev/null)\" ] &&
         zcat /usr/share/man/man1/$page.1.gz | grep -q '^\\.TH .*\"Vantrel $version\"'"
done

# --- Running it, with the scripted helper where the package expects one; remove() takes it away.
as_root install -m 755 "$1" "$packaged_helper"
check "the installed application runs as packaged" \
    "$here/../scripts/with-keyring.sh" "$here/package-install.sh" --session

# --- Removing it: nothing of ours may stay.
remove
installed=false
check "the package is gone, configuration included" absent
left=()
for file in "${files[@]}" "$packaged_helper"; do
    [ -d "$file" ] && [[ "$file" != */vantrel ]] && continue
    if [ -e "$file" ] || [ -L "$file" ]; then left+=("$file"); fi
done
check "no file or folder of the package is left${left:+: ${left[*]}}" test ${#left[@]} -eq 0

finish "package install"
