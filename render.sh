#!/usr/bin/env bash
# Renders a scene folder to a picture that one can look at: ./render.sh [scene-folder] [options of halvorne]
# Installs what is missing (Debian), builds, renders. Default: our own scenes/room.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$root/tools/packages.sh"

scene=$root/scenes/room
if [ $# -gt 0 ] && [ -d "$1" ]; then
    scene=$(cd "$1" && pwd)
    shift
elif [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
    echo "render.sh: '$1' is not a folder" >&2
    exit 1
fi

need "${build_packages[@]}"
(
    cd "$root"
    cmake --preset release -DHV_BUILD_TESTS=OFF -DHV_BUILD_BENCH=OFF -DHV_WARNINGS_AS_ERRORS=OFF -B build/render >/dev/null
    cmake --build build/render --target halvorne hdr2png
)

name=$(basename "$scene")
mkdir -p "$root/out"
"$root/build/render/apps/halvorne" "$scene" --output "$root/out/$name.hdr" "$@"
"$root/build/render/tools/hdr2png" "$root/out/$name.hdr" "$root/out/$name.png"
echo "The picture is in out/$name.png, its linear values in out/$name.hdr ($root/out)."
