#!/usr/bin/env bash
# Renders the sample scenes, small, to docs/gallery: tools/make_gallery.sh [scene...]. Without a scene, all of them.
# Installs what is missing (Debian) and builds, as render.sh does. The seed is fixed, so the same build makes the same
# pictures on any number of cores.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/tools/packages.sh"

# scene, frames, exposure in stops
pictures="
room     128  0
balls    64   -0.2
forest   48   -0.2
study    160  0.4
meadow   64   -1
plates   192  0
pane     192  0.2
tinted   192  0.3
caustics 96   0.2
lampshade 192 0.4
corridor 96   0.7
terrain  64   -0.3
bust     128  0.3
furry    128  0.2
hair     192  0.3
moving   96   0
"
size=400x225

need "${build_packages[@]}"
(
    cd "$root"
    cmake --preset release -DHV_BUILD_TESTS=OFF -DHV_BUILD_BENCH=OFF -DHV_WARNINGS_AS_ERRORS=OFF \
        -B build/render >/dev/null
    cmake --build build/render --target halvorne hdr2png
)

linear=$(mktemp -d)
trap 'rm -rf "$linear"' EXIT
mkdir -p "$root/docs/gallery"
made=0
while read -r scene frames exposure; do
    if [ -z "$scene" ]; then continue; fi
    if [ $# -gt 0 ] && [[ " $* " != *" $scene "* ]]; then continue; fi
    "$root/build/render/apps/halvorne" "$root/scenes/$scene" --quiet --size "$size" --frames "$frames" --seed 1 \
        --output "$linear/$scene.hdr" </dev/null
    "$root/build/render/tools/hdr2png" "$linear/$scene.hdr" "$root/docs/gallery/$scene.jpg" --exposure "$exposure"
    echo "docs/gallery/$scene.jpg"
    made=$((made + 1))
done <<<"$pictures"

if [ "$made" = 0 ]; then
    echo "make_gallery.sh: no scene of the name '$*'" >&2
    exit 1
fi
