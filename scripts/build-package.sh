#!/usr/bin/env bash
# Builds the Debian package from the working tree: scripts/build-package.sh [output directory]
# (default build/package). Prints the path of vantrel_<version>_<arch>.deb on its last line; the
# debug symbols package lands beside it.
#
# The build runs on a copy of the tree, so the debhelper leftovers (debian/vantrel/, obj-*/,
# debian/files…) never reach the checkout and dpkg-buildpackage can write its results to the
# copy's parent, as it insists on.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
out="$(mkdir -p "${1:-$root/build/package}" && cd "${1:-$root/build/package}" && pwd)"

# The version has one home, the project() call; the Debian changelog is made from it.
version="$(sed -nE 's/^project\(Vantrel VERSION ([0-9.]+).*/\1/p' "$root/CMakeLists.txt")"
[ -n "$version" ] || { echo "build-package: no version in CMakeLists.txt" >&2; exit 1; }

work="$out/work"
source="$work/vantrel-$version"
rm -rf "$work"
mkdir -p "$source"
tar -C "$root" --exclude-vcs --exclude='./build*' --exclude=./.cache \
    --exclude=./compile_commands.json --exclude='./obj-*' -cf - . | tar -C "$source" -xf -

# A fixed date keeps rebuilds of one commit identical; outside git the build time will do.
date_epoch="$(git -C "$root" log -1 --format=%ct 2>/dev/null || date +%s)"
export SOURCE_DATE_EPOCH="$date_epoch"
cat >"$source/debian/changelog" <<CHANGELOG
vantrel ($version) unstable; urgency=medium

  * Vantrel $version.

 -- Vantrel developers <dev@vantrel.app>  $(date -u -R -d "@$date_epoch")
CHANGELOG

if command -v ccache >/dev/null 2>&1; then
  # debhelper gives the build its own HOME, where ccache would look for a fresh, empty cache.
  CCACHE_DIR="$(ccache -k cache_dir)"
  export CCACHE_DIR VANTREL_COMPILER_LAUNCHER=ccache
fi

cd "$source"
dpkg-checkbuilddeps
nice dpkg-buildpackage --build=binary --no-sign -jauto >"$work/build.log" 2>&1 || {
  tail -n 60 "$work/build.log" >&2
  echo "build-package: dpkg-buildpackage failed; the whole log is $work/build.log" >&2
  exit 1
}

arch="$(dpkg-architecture -qDEB_HOST_ARCH)"
rm -f "$out"/vantrel*.deb
mv "$work"/vantrel*_"$version"_"$arch".deb "$out"/
echo "$out/vantrel_${version}_${arch}.deb"
