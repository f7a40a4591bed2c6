#!/usr/bin/env bash
# Every sample scene renders without a complaint: its models and pictures are found, and something is seen.
# usage: test_scenes.sh folder-of-scenes halvorne all|quick; quick leaves out scenes that cast 100,000 photons and more
source "$(dirname "$0")/check.sh"
scenes=$1 halvorne=$2 which=$3

for folder in "$scenes"/*/; do
    name=$(basename "$folder")
    if [ "$which" = quick ] && grep -qsE '^ *photon [0-9]{6}' "$folder"/light/*; then continue; fi
    expect_status 0 "$name" "$halvorne" "$folder" --size 32x18 --frames 2 --seed 1 -o "$scratch/$name.hdr"
    ! grep -E "error :\(|warning :\(" "$scratch/stdout" >&2 || fail "$name: complains"
    awk '/^avgerage of/ { seen = $(NF - 5) > 0.01 && $(NF - 4) > 0.01 && $(NF - 3) > 0.01 } END { exit !seen }' \
        "$scratch/stdout" || fail "$name: is black"
done
finish
