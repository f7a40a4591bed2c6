#!/usr/bin/env bash
# Renders the pictures of docs/photons.md to docs/photons and prints what each took as rows of its tables:
# tools/make_photon_docs.sh [name...]. Without a name, all of them. Installs what is missing (Debian) and builds, as
# render.sh does; HALVORNE_BUILD names a build folder to use instead. The seed is fixed: the same build makes the same
# pictures on any number of cores.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=${HALVORNE_BUILD:-$root/build/render}
size=240x150
wanted=" $* "

if [ -z "${HALVORNE_BUILD:-}" ]; then
    source "$root/tools/packages.sh"
    need "${build_packages[@]}"
    cmake -S "$root" --preset release -DHV_BUILD_TESTS=OFF -DHV_BUILD_BENCH=OFF -DHV_WARNINGS_AS_ERRORS=OFF \
        -B "$build" >/dev/null
    cmake --build "$build" --target halvorne hdr2png
fi
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir -p "$root/docs/photons"

# report label: the last value that the report of the last render gave under a label
report() { tr '\r' '\n' <"$scratch/report" | sed -n "s/^$1 *\([0-9.]*\).*/\1/p" | tail -n 1; }

# picture name scene frames stops "path-tracing or nothing" [keyword value]...: a scene with some of its settings changed.
# `photon` changes the light that has photons, `look` sets eye, target and field of view as x,y,z,x,y,z,degrees.
picture() {
    local name=$1 scene=$2 frames=$3 stops=$4 mode=$5 folder=$scratch/scene start stop
    shift 5
    if [ "$wanted" != "  " ] && [[ $wanted != *" $name "* ]]; then return; fi
    rm -rf "$folder"
    cp -r "$root/scenes/$scene" "$folder"
    while [ $# -gt 0 ]; do
        case $1 in
        photon) sed -i "s/^\( *photon\) [1-9].*/\1 $2/" "$folder"/light/*.hv ;;
        look)
            IFS=, read -r -a at <<<"$2"
            sed -i "s/^\( *position\) .*/\1 ${at[*]:0:3}/; s/^\( *target\) .*/\1 ${at[*]:3:3}/
                    s/^\( *field_of_view\) .*/\1 ${at[6]}/" "$folder"/camera/*.hv
            ;;
        *) sed -i "s/^\( *$1\) .*/\1 $2/" "$folder"/render/*.hv ;;
        esac
        shift 2
    done
    start=$(date +%s%N)
    "$build/apps/halvorne" "$folder" ${mode:+--$mode} --size "$size" --frames "$frames" --seed 1 \
        --output "$scratch/picture.hdr" </dev/null >"$scratch/report" 2>/dev/null
    stop=$(date +%s%N)
    "$build/tools/hdr2png" "$scratch/picture.hdr" "$root/docs/photons/$name.jpg" --exposure "$stops"
    # The frames' own time is what their rates say; the rest of the time is the cast, the tree and reading the scene.
    tr '\r' '\n' <"$scratch/report" | awk -v name="$name" -v took="$(((stop - start) / 1000000))" \
        -v photons="$(report photons)" -v cells="$(report 'density estimator buffer')" '
        /^performance/ { rendering += 1 / $(NF - 3); ++frames }
        END { printf "| %s | %.2f | %.0f | %s | %s |\n", name, took / 1000 - rendering, 1000 * rendering / frames,
                     cells == "" ? "-" : cells, photons }'
}

echo "| picture | before the frames, s | per frame, ms | cells, MB | caustic photons |"
echo "|---|---|---|---|---|"

for scene in caustics:0 lampshade:0 corridor:0.7; do
    picture "${scene%:*}_photons" "${scene%:*}" 64 "${scene#*:}" ""
    picture "${scene%:*}_paths" "${scene%:*}" 64 "${scene#*:}" path-tracing
done
picture caustics_no_photons caustics 64 0 path-tracing photon 0

close=0.3,1.6,1.2,-1.58,0.45,-0.2,22 # the wall behind the large glass ball
for radius in 0.01 0.1 0.4; do picture "radius_$radius" caustics 16 -1 "" look $close radius $radius; done
for count in 10000 100000 3000000; do picture "count_$count" caustics 16 -1 "" look $close photon $count; done

under=1.5,0.45,2.3,0.5,0.25,-0.2,40 # below the table
for resolution in 0.001 0.05 4; do
    picture "resolution_$resolution" lampshade 48 2.3 "" look $under resolution $resolution distance 0.01
done
for distance in 0.05 0.5 5; do picture "distance_$distance" corridor 64 0.7 "" resolution 1 distance $distance; done
for depth in 1 4 18; do picture "photon_depth_$depth" corridor 64 0.7 "" photon_depth $depth; done
