#!/usr/bin/env bash
# Fails when an #include "..." runs upward through the layers. Each folder of src/ may include
# only the folders listed for it; a test folder may include what its source folder may and the
# shared test support; nothing but the program includes src/main.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"

declare -A allowed=(
  [core]="core"
  [tracker]="core tracker"
  [api]="core api"
  [system]="core tracker system"
  [app]="core tracker api system app"
  [ui]="core tracker api system app ui"
  [main]="core tracker api system app ui main"
)

status=0
check() { # <file> <folder whose rule applies> <extra allowed folders…>
  local file="$1" layer="$2"
  shift 2
  local ok=" ${allowed[$layer]} $* "
  local line target
  while IFS= read -r line; do
    target="${line#*\"}"
    target="${target%%\"*}"
    # A name without a folder is the file's own neighbour (a header or a generated .moc).
    [[ "$target" == */* ]] || continue
    if [[ "$ok" != *" ${target%%/*} "* ]]; then
      echo "$file: includes \"$target\", above or beside the ${layer} layer" >&2
      status=1
    fi
  done < <(grep -E '^[[:space:]]*#[[:space:]]*include[[:space:]]*"' "$file" || true)
}

while IFS= read -r file; do
  layer="${file#src/}"
  layer="${layer%%/*}"
  if [[ -z "${allowed[$layer]+set}" ]]; then
    echo "$file: src/$layer is not a known layer; add it to scripts/check-layers.sh" >&2
    status=1
    continue
  fi
  check "$file" "$layer"
done < <(find src -name '*.h' -o -name '*.cpp' | sort)

while IFS= read -r file; do
  layer="${file#tests/}"
  layer="${layer%%/*}"
  case "$layer" in
  support) check "$file" app support ;;
  *) [[ -n "${allowed[$layer]+set}" ]] && check "$file" "$layer" support "$layer" ;;
  esac
done < <(find tests -name '*.h' -o -name '*.cpp' | sort)

# Fuzz targets drive the decoders directly: the subsystems', and the desktop layer's timestamp
# parser, which needs nothing above the core.
while IFS= read -r file; do
  check "$file" system tracker api ui
done < <(find fuzz -name '*.h' -o -name '*.cpp' | sort)

# Benchmarks measure the layers from outside, like tests, but never the program's own folder.
while IFS= read -r file; do
  check "$file" ui support
done < <(find bench -name '*.h' -o -name '*.cpp' | sort)

exit "$status"
