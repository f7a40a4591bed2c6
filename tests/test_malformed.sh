#!/usr/bin/env bash
# Scenes that are wrong in every way end cleanly: no crash, no hang, and a picture wherever there is a camera.
# usage: test_malformed.sh halvorne
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
halvorne=$1
cd "$scratch" || exit 1

# try STATUS TEXT FILE: standard input becomes FILE of an otherwise sound scene.
try() {
    local wanted=$1 text=$2 file=$3
    rm -rf scene out.hdr && make_scene scene
    mkdir -p "scene/$(dirname "$file")"
    cat >"scene/$file"
    render "$wanted" "$text"
}

render() {
    expect_status "$1" "$2" "$halvorne" scene --size 16x12 --frames 2 -o out.hdr
    if [ "$1" = 0 ] && [ ! -s out.hdr ]; then fail "$2: no picture"; fi
    if [ "$1" != 0 ] && [ "$(wc -l <stderr)" != 1 ]; then fail "$2: not told in one line"; fi
}

repeat() { for _ in $(seq "$1"); do printf '%b' "$2"; done; }

# -- Files as such
try 1 "empty camera file" camera/main.hv </dev/null
try 0 "camera block without end" camera/main.hv <<<$'camera\nresolution 8 6'
try 0 "camera block and nothing else" camera/main.hv <<<'camera'
printf 'camera\r\n\tpose\r\n\t\tposition 0 0 9\r\n\tend\r\nend\r\n' | try 0 "carriage returns" camera/main.hv
{ repeat 5000 x; echo; echo end; } | try 0 "a line of 5000 characters" shader/long.hv
repeat 4094 'a' | try 0 "a line without an end" shader/long.hv
head -c 20000 "$halvorne" | try 0 "a program instead of text" geometry/junk.hv
printf 'object\n\0\0\0name x\0y\nend\n' | try 0 "zero bytes" geometry/zero.hv
repeat 4000 'shader\nsurface_shader\n' | try 0 "4000 blocks that never end" shader/open.hv
repeat 2000 'end\n' | try 0 "nothing but ends" shader/ends.hv
rm -rf scene && make_scene scene && mkdir scene/shader/folder.hv && render 0 "a folder named like a file"
rm -rf scene && make_scene scene && mkfifo scene/shader/pipe.hv && render 0 "a pipe named like a file"
rm -rf scene && make_scene scene && ln -s nowhere scene/shader/link.hv && render 0 "a dangling link"
rm -rf scene && make_scene scene && rm -r scene/{shader,render,light,geometry} && render 0 "a camera folder alone"

# -- Numbers
while IFS='|' read -r line; do
    try 0 "camera line '$line'" camera/main.hv <<<$'camera\npose\nposition 0 0 10\ntarget 0 0 0\nup_vector 0 1 0\nend\n'"$line"$'\nend'
done <<'END'
region 5 5 1 1
region -2147483648 -2147483648 2147483647 2147483647
sample -7
sample 1e30
ior 0
ior nan
projection "sideways"
projection
aov
name "no second quote
END
rm -rf scene && make_scene scene
for film in '0 0' '-5 -5' '-5 x' '2147483647 2147483647' '65536 65536'; do
    printf 'camera\nresolution %s\nsample 1\nend\n' "$film" >scene/camera/main.hv
    expect_status 1 "film of $film" "$halvorne" scene -o out.hdr
    [ "$(wc -l <stderr)" = 1 ] || fail "film of $film: not told in one line"
done
printf 'camera\nresolution 99999999999999999999 6\nsample 1\nend\n' >scene/camera/main.hv
expect_status 0 "a width that cannot be read" "$halvorne" scene -o out.hdr
grep -aq -- '-Y 540 +X 960' out.hdr || fail "a width that cannot be read: other film than the default"

while IFS='|' read -r line; do
    try 0 "pose line '$line'" camera/main.hv <<<$'camera\npose\nposition 0 0 10\ntarget 0 0 0\nup_vector 0 1 0\n'"$line"$'\nend\nend'
done <<'END'
target 0 0 10
up_vector 0 0 1
up_vector 0 0 0
position 1e38 1e38 1e38
position inf nan 0
field_of_view 0
field_of_view 180
field_of_view -720
field_of_view 1e38
bokeh 1e30
bokeh -1
END
while IFS='|' read -r line; do
    try 0 "render line '$line'" render/settings.hv <<<$'render\nfinal_gather\ndistance 0\nend\n'"$line"$'\nend'
    try 0 "gather line '$line'" render/settings.hv <<<$'render\nfinal_gather\ndistance 0\n'"$line"$'\nend\nend'
done <<'END'
clamp -1 nan 1e39
image_path "nowhere"
ray_depth -5
ray_depth 1000000
sample -1
sample 5000
bounce 1000
radius 0
resolution -1
END
while IFS='|' read -r line; do
    try 0 "light line '$line'" light/sky.hv <<<$'sky_light\nphoton 0\n'"$line"$'\nend\npoint_light\n'"$line"$'\nend\nparallel_light\n'"$line"$'\nend\ngeometry_light\nphoton 0\n'"$line"$'\nend'
done <<'END'
color -1 -1 -1
color 1e38 1e38 1e38
sample -3
north 0 0 0
zenith 0 1 0
image "missing.hdr"
turbidity -1
inner_angle 500
link
aov
END

# -- Shaders
{ echo shader; repeat 40 'surface_shader\nlambertian\ncolor 1 1 1\nend\nend\n'; echo end; } | try 0 "forty layers, weights 0" shader/layers.hv
try 0 "shader without a name" shader/unnamed.hv <<<$'shader\nsurface_shader\nsideness "back"\nemissive\ncolor 1e38 1e38 1e38\nend\nend\nend'
try 0 "refraction by 0 and by a negative number" shader/glass.hv <<<$'shader\nname "undefined"\nsurface_shader\ndielectric\nspecular\ncolor 1 1 1\nend\nglossy\ncolor 1 1 1\nend\nroughness\ncolor -5 0 0\nend\nior\ncolor -1 0 0\nend\nend\nend'
try 0 "missing texture" shader/texture.hv <<<$'shader\nname "undefined"\nsurface_shader\nlambertian\ncolor 1 1 1\nimage "missing.png"\nsampler\nuv_matrix 1 2\ngamma 0\nend\nend\nend\nend'
try 0 "invisible everything" shader/invisible.hv <<<$'shader\nname "undefined"\nsurface_shader\nlambertian\ncolor 1 1 1\nend\nend\ngeometry_shader\ninvisible 1\nflip_face 1\nreduction -4\nend\nend'

# -- Objects and instances
try 0 "missing model" geometry/more.hv <<<$'object\nobj "geometry/none.obj"\nobj ""\nobj "geometry"\nhair "none.hair"\nend'
try 0 "an instance of itself" geometry/more.hv <<<$'object\nname self\nobj "geometry/wall.obj"\ninstance\nobject self\nend\nend'
try 0 "a circle of instances" geometry/more.hv <<<$'object\nname a\ninstance\nobject b\nend\nend\nobject\nname b\ninstance\nobject a\nend\nend\nobject\nname root\ninstance\nobject a\nend\nend'
try 0 "nothing but a circle" geometry/wall.hv <<<$'object\nname a\ninstance\nobject b\nend\nend\nobject\nname b\ninstance\nobject a\nend\nend'
try 0 "an instance of nothing" geometry/more.hv <<<$'object\ninstance\nobject ghost\nend\ninstance\nend\nend'
for matrix in '0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0' '1 2 3' 'nan' '1e38 0 0 0 0 1e38 0 0 0 0 1e38 0 0 0 0 1' '1 0 0 0 0 1 0 0 0 0 1 0 0 0 0 0' '1e-30 0 0 0 0 1e-30 0 0 0 0 1e-30 0 0 0 0 1'; do
    try 0 "matrix $matrix" geometry/zz.hv <<<$'object\ninstance\nobject wall\nmatrix '"$matrix"$'\nend\nend'
done
for i in $(seq 40); do printf 'object\nname deep%d\ninstance\nobject %s\nmatrix 1 0 0 0.01 0 1 0 0 0 0 1 0 0 0 0 1\nend\nend\n' "$i" "$([ "$i" = 1 ] && echo wall || echo "deep$((i - 1))")"; done |
    try 0 "forty levels of instances" geometry/zz.hv

# -- Models
while IFS='|' read -r text lines; do
    printf '%b' "$lines" | try 0 "model: $text" geometry/wall.obj
done <<'END'
empty|
no faces|v 0 0 0\nv 1 0 0\nv 0 1 0\n
indices out of range|v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 99\nf -9 -2 -1\nf 0 0 0\nf 99 98 97 96\n
indices beyond an int|v 0 0 0\nv 1 0 0\nv 0 1 0\nf 99999999999999999999 2 3\nf 1/99999999999/-99999999999 2 3\n
words for numbers|v a b c\nv\nv 1\nf a b c\nf 1 2 3\n
numbers that are none|v nan nan nan\nv inf -inf 0\nv 1e39 0 0\nv 1 1 0\nf 1 2 3\nf 2 3 4\nf 1 2 3 4\n
one point three times|v 0 0 0\nf 1 1 1\nf 1 1 1 1\n
needles|v 0 0 0\nv 1 0 0\nv 2 0 0\nv 3 0 0\nf 1 2 3\nf 1 2 3 4\n
giants|v -1e30 -1e30 0\nv 1e30 -1e30 0\nv 0 1e30 0\nf 1 2 3\n
dwarfs|v 0 0 0\nv 1e-38 0 0\nv 0 1e-38 0\nf 1 2 3\n
a quad bent into a bow|v 0 0 0\nv 1 1 0\nv 1 0 0\nv 0 1 0\nf 1 2 3 4\n
normals of zero and none|v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 0\nvn nan 1 1\nf 1//1 2//2 3//9\n
no last line end|v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3
endless material name|usemtl \nusemtl\nv 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n
END
{ printf 'v 0 0 0\nv 1 0 0\nv 0 1 0\nf'; repeat 3000 ' 1 2 3'; echo; repeat 9000 x; printf '\nf 1 2 3\n'; } | try 0 "model: endless lines" geometry/wall.obj
head -c 60000 "$halvorne" | try 0 "model: a program" geometry/wall.obj
{ printf 'v 0 0 0\nv 1 0 0\nv 0 1 0\n'; repeat 3000 'f 1 2 3\n'; } | try 0 "model: one triangle 3000 times" geometry/wall.obj

finish
