#!/usr/bin/env bash
# Every sample scene renders without a complaint: its models, pictures and shaders are found, and something is seen.
# usage: test_scenes.sh folder-of-scenes halvorne
source "$(dirname "$0")/check.sh"
scenes=$1 halvorne=$2

for folder in "$scenes"/*/; do
    name=$(basename "$folder")
    expect_status 0 "$name" "$halvorne" "$folder" --size 32x18 --frames 2 --seed 1 -o "$scratch/$name.hdr"
    ! grep -E "error :\(|warning :\(" "$scratch/stdout" >&2 || fail "$name: complains"
    awk '/^avgerage of/ { seen = $(NF - 5) > 0.01 && $(NF - 4) > 0.01 && $(NF - 3) > 0.01 } END { exit !seen }' \
        "$scratch/stdout" || fail "$name: is black"

    # A name without a definition falls back to the default shader in silence.
    sed -n 's/^usemtl \(.*\)/\1/p' "$folder"/geometry/*.obj | sort -u >"$scratch/used"
    sed -n 's/^ *shader "\(.*\)"/\1/p' "$folder"/geometry/*.hv | sort -u >>"$scratch/used"
    while read -r shader; do
        grep -qs "^ *name \"$shader\"" "$folder"/shader/*.hv || fail "$name: nothing defines the shader '$shader'"
    done <"$scratch/used"
done
finish
