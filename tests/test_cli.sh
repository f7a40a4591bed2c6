#!/usr/bin/env bash
# The command-line host: options, exit status, what goes to which stream, what lands on disk.
# usage: test_cli.sh halvorne
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
halvorne=$1
cd "$scratch" || exit 1
make_scene scenes/tiny
make_scene scenes/lamps
cat >scenes/lamps/light/lamps.hv <<'END'
point_light
    position 0 0 3
end
point_light
    position 0 0 -3
end
parallel_light
    direction 0 0 -1
end
END
find scenes | sort >before

# Bytes of a binary PPM behind its header, as decimal numbers one a line.
ppm_bytes() { tail -c "$((3 * $2))" "$1" | od -An -v -tu1 -w1 | tr -d ' '; }

# -- Streams, default name
expect_status 0 "plain" "$halvorne" scenes/tiny
expect_text stdout '^            halvorne .{59}$' "banner of 80 columns"
grep -q 'halvorne: ' stdout && fail "the host speaks on standard output"
[ "$(cat stderr)" = "halvorne: wrote $scratch/tiny.hdr" ] || fail "plain: stderr says '$(cat stderr)'"

expect_status 0 "quiet" "$halvorne" -q scenes/tiny/ -o quiet.exr
[ -s quiet.exr ] && [ ! -s stdout ] && [ ! -s stderr ] || fail "quiet: no picture or something said"

# -- Overrides
expect_status 0 "size and frames" "$halvorne" scenes/tiny --size 5x3 --frames 7 -o small.hdr
[ "$(grep -c '^performance' stdout)" = 7 ] || fail "not seven frames"
grep -aq -- '-Y 3 +X 5' small.hdr || fail "film is not 5x3"

# 3 x 2 of the 8 x 6 pixels, none of them black, from column 2 of row 1 on.
expect_status 0 "region" "$halvorne" scenes/tiny --region 2,1,5,3 -o region.ppm
ppm_bytes region.ppm 48 | grep -nv '^0$' | cut -d: -f1 >lit
[ "$(wc -l <lit)" = 18 ] || fail "region: $(wc -l <lit) bytes are lit"
[ "$(head -n 1 lit)" = $((3 * (8 + 2) + 1)) ] || fail "region: first lit byte is $(head -n 1 lit)"

expect_status 0 "aov" "$halvorne" scenes/tiny --aov normal,lambertian_color,normal -o pass.ppm
# The wall looks at the camera along +z: (1 + n) / 2 is (0.5, 0.5, 1). Its albedo is the default 0.85, 216 of 255. Lit by
# the sky alone it shows 0.85 x 0.5.
for file in pass-normal pass-lambertian_color pass; do
    ppm_bytes $file.ppm 48 | tail -n +$((3 * (3 * 8 + 4) + 1)) | head -n 3 | paste -sd' '
done | diff - <(printf '%s\n' '127 127 255' '216 216 216' '108 108 108') >&2 || fail "aov: the wall is another"

# What each light brings over each lobe: the matte wall takes light over one, and the sky is seen all around it. The second
# point light stands behind the wall, and nothing emits.
expect_status 0 "light-aovs" "$halvorne" scenes/lamps --light-aovs -o lamps.ppm
lit=
for light in sky emitters point0 point1 parallel0; do
    for lobe in lambertian transmissive glossy specular; do
        ppm_bytes "lamps-$light-$lobe.ppm" 48 | grep -qv '^0$' && lit="$lit $light-$lobe"
    done
done
[ "$(find . -name 'lamps-*.ppm' | wc -l)" = 20 ] || fail "light-aovs: pictures are missing"
[ "$lit" = " sky-lambertian sky-specular point0-lambertian parallel0-lambertian" ] || fail "light-aovs: lit are$lit"

# -- Seeds: the same for any number of threads, another for another seed
for run in "1 --threads 1" "1 --threads 4" "2"; do
    # shellcheck disable=SC2086
    expect_status 0 "seed $run" "$halvorne" -q scenes/tiny --size 64x48 --seed $run -o "seed${run// /}.pfm"
done
cmp -s seed1--threads1.pfm seed1--threads4.pfm || fail "one seed, two pictures"
cmp -s seed1--threads1.pfm seed2.pfm && fail "two seeds, one picture"

# -- Working folder: geometry paths are the scene's own unless told otherwise
expect_status 0 "no-chdir" "$halvorne" --no-chdir scenes/tiny -o there.hdr
expect_text stdout 'object - cannot open .*wall\.obj' "no-chdir"

# -- A stop ends the render after the frame under way, with its picture
for signal in INT TERM; do
    "$halvorne" scenes/tiny --frames 65535 --size 64x64 -o "stopped$signal.hdr" >"log$signal" 2>"errors$signal" &
    process=$!
    for _ in $(seq 300); do
        grep -q '^performance' "log$signal" && break
        sleep 0.1
    done
    kill -s "$signal" "$process"
    wait "$process" || fail "$signal: status $?"
    [ -s "stopped$signal.hdr" ] || fail "$signal: no picture"
    expect_text "errors$signal" 'stopped early' "$signal"
done

# -- Mistakes on the command line: status 2, told on standard error, nothing rendered
while IFS='|' read -r arguments; do
    # shellcheck disable=SC2086  # a line is a list of words
    expect_status 2 "usage '$arguments'" "$halvorne" $arguments
    [ -s stderr ] && [ ! -s stdout ] || fail "usage '$arguments': not told on standard error alone"
done <<'END'

--unknown scenes/tiny
scenes/tiny --size 5x-1
scenes/tiny --region 5,0,5,9
scenes/tiny --threads 257
scenes/tiny --aov normal,nonsense
scenes/tiny -o
END

# -- What cannot be done: status 1 and one line, before anything is rendered
mkdir -p nocamera/camera data.png blocked-parallel0-glossy.hdr
mkfifo pipe.hdr
while IFS='|' read -r text arguments; do
    # shellcheck disable=SC2086
    expect_status 1 "$text" "$halvorne" $arguments
    [ "$(wc -l <stderr)" = 1 ] || fail "$text: $(wc -l <stderr) lines on standard error"
    grep -q '^performance' stdout && fail "$text: rendered all the same"
done <<'END'
missing folder|nowhere
no camera|nocamera -o n.hdr
the output is a folder|scenes/tiny -o scenes.hdr/../data.png
a share of a light is a folder|scenes/lamps --light-aovs -o blocked.hdr
the output is a pipe|scenes/tiny -o pipe.hdr
unknown ending|scenes/tiny -o picture.txt
region outside the film|scenes/tiny --region 8,0,9,6 -o r.hdr
END
[ -e n.hdr ] && fail "a test of the output left a file"

# -- Density cells: what would fit is told before the limit ends the run, and it does fit. Paths alone need none.
make_scene walls
for n in $(seq 1 800); do
    printf 'v -9 -9 -%s\nv 9 -9 -%s\nv 9 9 -%s\nv -9 9 -%s\nf -4 -3 -2 -1\n' "$n" "$n" "$n" "$n"
done >>walls/geometry/wall.obj
sed -i 's/distance 0/distance 1\n        resolution 1e-4/' walls/render/settings.hv
expect_status 1 "too many cells" "$halvorne" walls -o walls.hdr
expect_text stdout '^density estimator consumes more than 1GB memory\.$' "too many cells"
fitting=$(sed -n "s/.*1024 MB; 'resolution \([0-9.e+-]*\)'.*/\1/p" stderr)
expect_status 0 "too many cells for paths alone" "$halvorne" walls -o walls.hdr --path-tracing
expect_text stdout '^unidirectional path tracing$' "paths alone"
awk -v r="${fitting:-0}" 'BEGIN { n = sqrt(324 / r); exit !(n > 200 && n < 238) }' ||
    fail "resolution '$fitting' is not near the limit"

find scenes | sort | diff before - >&2 || fail "the scene folder was changed"
finish
