#!/usr/bin/env bash
# obj2scene makes scenes that show the whole model; hdr2png encodes by the sRGB curve; make_sky puts the sun where it is told.
# usage: test_tools.sh obj2scene hdr2png halvorne
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
obj2scene=$1 hdr2png=$2 halvorne=$3
make_sky=$(cd "$(dirname "$0")/../tools" && pwd)/make_sky.py
cd "$scratch" || exit 1

# A tall box, 1 x 5 x 2, far from the origin, with a stray vertex that no face uses.
printf 'v 100 0 0\nv 101 0 0\nv 101 5 0\nv 100 5 0\nv 100 0 2\nv 101 0 2\nv 101 5 2\nv 100 5 2\nv 9999 9999 9999\n' >box.obj
printf 'usemtl red "x"\nf 4 3 2 1\nf 5 6 7 8\nusemtl blue\nf 1 2 6 5\nf 3 4 8 7\nf 1 5 8 4\nf -8 -7 -3 -4\n' >>box.obj

# The albedo is above 0 where the model is: a good part of the film, but no row or column at its border.
for up in y z; do
    rm -rf scene
    expect_status 0 "obj2scene --up $up" "$obj2scene" box.obj scene --up $up --no-ground --copy --width 40 --height 30 --frames 4
    expect_status 0 "its scene" "$halvorne" -q scene --aov lambertian_color -o box.pgm
    tail -c $((3 * 1200)) box-lambertian_color.pgm | od -An -v -tu1 -w120 >rows
    awk '{ for (i = 1; i <= NF; i++) if ($i) { inside++; if (NR == 1 || NR == 30 || i <= 3 || i > NF - 3) border++ } }
         END { exit !(inside > 240 && !border) }' rows || fail "--up $up: the model is tiny or touches the border"
done

rm -rf scene
expect_status 0 "obj2scene by path" "$obj2scene" box.obj scene --fov 20 --eye 110,3,20 --target 100,1,1
expect_text scene/camera/main.hv 'position 110 3 20' "eye"
expect_text scene/geometry/model.hv "obj \"$scratch/box.obj\"" "absolute path"
expect_text scene/shader/materials.hv 'name "blue"' "materials"
expect_status 0 "its scene" "$halvorne" -q scene --size 16x9 --frames 1 -o box.hdr

# Linear 0.5 is 188 of 255 on the sRGB curve, one stop down 0.25 is 137.
make_scene sky
rm sky/geometry/*
expect_status 0 "grey sky" "$halvorne" -q sky -o grey.hdr
for pair in "0 188" "-1 137" "3 255"; do
    read -r stops wanted <<<"$pair"
    expect_status 0 "hdr2png" "$hdr2png" grey.hdr grey.ppm --exposure "$stops"
    [ "$(tail -c 144 grey.ppm | od -An -v -tu1 -w1 | sort -u | tr -d ' \n')" = "$wanted" ] || fail "exposure $stops is not $wanted"
done

# A sun in the north, half way up, stands a quarter from the left and a quarter from the top: texel 8, 4 of 32 x 16. It
# alone is still bright nine stops down.
if command -v python3 >/dev/null; then
    expect_status 0 "make_sky" python3 "$make_sky" sun.hdr --width 32 --elevation 45 --azimuth 0
    expect_status 0 "its picture" "$hdr2png" sun.hdr sun.ppm --exposure -9
    brightest=$(tail -c 1536 sun.ppm | od -An -v -tu1 -w3 | awk '$2 > most { most = $2; at = NR - 1 } END { print at }')
    [ "$brightest" = $((4 * 32 + 8)) ] || fail "make_sky: the sun is texel $brightest"
    expect_status 2 "make_sky, no sky" python3 "$make_sky" sun.hdr --turbidity 0
fi

while read -r status tool arguments; do
    # shellcheck disable=SC2086  # a line is a list of words
    expect_status "$status" "$tool $arguments" "${!tool}" $arguments
done <<'END'
2 obj2scene box.obj
2 obj2scene box.obj scene --up x
2 obj2scene box.obj scene --fov 180
1 obj2scene rows scene
1 obj2scene box.obj box.obj
0 hdr2png grey.hdr grey.png
1 hdr2png grey.hdr no/such/x.png
2 hdr2png grey.hdr
END
finish
