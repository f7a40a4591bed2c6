#!/usr/bin/env bash
# Scenes that are wrong in every way end cleanly: no crash, no hang, and a picture wherever there is a camera.
# usage: test_malformed.sh halvorne
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
halvorne=$1
cd "$scratch" || exit 1
shopt -s lastpipe # a failure at the end of a pipe counts as well

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
    # The checker reads the same files to their end; most have something for it to tell.
    timeout -k 5 60 "$halvorne" lint scene >lint 2>&1
    [ $? -le 1 ] || fail "$2: the checker ends in another way than with 0 or 1"
}

# try_lines KIND FILE TEMPLATE: each line of standard input in the place of LINE, with \n for line ends in the template.
try_lines() {
    local kind=$1 file=$2 template=$3 line
    while IFS= read -r line; do
        printf '%b' "${template//LINE/$line}" | try 0 "$kind '$line'" "$file"
    done
}

repeat() { for _ in $(seq "$1"); do printf '%b' "$2"; done; }

# -- Files as such
try 1 "empty camera file" camera/main.hv </dev/null
head -c 20000 "$halvorne" | try 0 "a program instead of text" geometry/junk.hv
repeat 4000 'shader\nsurface_shader\n' | try 0 "4000 blocks that never end" shader/open.hv
rm -rf scene && make_scene scene && mkfifo scene/shader/pipe.hv && render 0 "a pipe named like a file"
ln -s nowhere scene/shader/link.hv && mkdir scene/light/folder.hv && render 0 "a dangling link, a folder named like a file"
rm -r scene/{shader,render,light,geometry} && render 0 "a camera folder alone"

# -- Numbers
for film in '0 0' '-5 x' '2147483647 2147483647' '65536 65536'; do
    printf 'camera\nresolution %s\nsample 1\nend\n' "$film" >scene/camera/main.hv
    expect_status 1 "film of $film" "$halvorne" scene -o out.hdr
done
pose='camera\npose\nposition 0 0 10\ntarget 0 0 0\nup_vector 0 1 0\n'
try_lines camera camera/main.hv "${pose}LINE\nend\nend" <<'END'
end\nregion -2147483648 -2147483648 2147483647 2147483647
end\nsample -7
end\nior 0
target 0 0 10
position 1e38 1e38 1e38
field_of_view 1e38
END
try_lines render render/settings.hv 'render\nLINE\nfinal_gather\ndistance 0\nLINE\nend\nend' <<'END'
clamp -1 nan 1e39
ray_depth 1000000
bounce 1000
radius 0
resolution -1
END
lights='photon 0\nLINE\nend\n'
try_lines light light/sky.hv "sky_light\n${lights}point_light\n${lights}parallel_light\n${lights}geometry_light\n${lights}" <<'END'
color 1e38 1e38 1e38
north 0 0 0
zenith 0 1 0
inner_angle 500
END

# -- Shaders
{ echo shader; repeat 40 'surface_shader\nlambertian\ncolor 1 1 1\nend\nend\n'; echo end; } | try 0 "forty layers, weights 0" shader/layers.hv
white='color 1 1 1\nend\n'
try_lines shader shader/default.hv 'shader\nname "undefined"\nLINE\nend' <<END
surface_shader\nemissive\ncolor 1e38 1e38 1e38\nend\nend
surface_shader\ndielectric\nspecular\n${white}glossy\n${white}roughness\ncolor -5 0 0\nend\nior\ncolor -1 0 0\nend\nend
surface_shader\nlambertian\nimage "missing.png"\nsampler\nuv_matrix 1 2\ngamma 0\nend\n${white}end
surface_shader\nlambertian\n${white}end\ngeometry_shader\ninvisible 1\nflip_face 1\nreduction -4\nend
END

# -- Objects and instances
circle='object\nname a\ninstance\nobject b\nend\nend\nobject\nname b\ninstance\nobject a\nend\nend\n'
printf '%b' "$circle" | try 0 "nothing but a circle" geometry/wall.hv
try_lines object geometry/more.hv 'LINE\nend' <<END
object\nobj "geometry/none.obj"\nobj ""\nobj "geometry"\nhair "none.hair"
object\nname self\nobj "geometry/wall.obj"\ninstance\nobject self\nend
${circle}object\nname root\ninstance\nobject a\nend
object\ninstance\nobject ghost\nend\ninstance\nend
END
try_lines matrix geometry/zz.hv 'object\ninstance\nobject wall\nmatrix LINE\nend\nend' <<'END'
0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0
nan
1e38 0 0 0 0 1e38 0 0 0 0 1e38 0 0 0 0 1
1e-30 0 0 0 0 1e-30 0 0 0 0 1e-30 0 0 0 0 1
END
for i in $(seq 40); do
    printf 'object\nname deep%d\ninstance\nobject %s\nend\nend\n' "$i" "$([ "$i" = 1 ] && echo wall || echo "deep$((i - 1))")"
done | try 0 "forty levels of instances" geometry/zz.hv

# -- Models
try_lines model geometry/wall.obj 'LINE' <<'END'
v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1/99999999999/-99999999999 2 3\nf 1 2 99
v nan nan nan\nv inf -inf 0\nv 1e39 0 0\nv 1 1 0\nf 1 2 3\nf 2 3 4\nf 1 2 3 4
v 0 0 0\nv 1 0 0\nv 2 0 0\nv 3 0 0\nf 1 2 3\nf 1 2 3 4
v -1e30 -1e30 0\nv 1e30 -1e30 0\nv 0 1e30 0\nf 1 2 3
v 0 0 0\nv 1 0 0\nv 0 1 0\nvn 0 0 0\nvn nan 1 1\nf 1//1 2//2 3//9
END
{ printf 'v 0 0 0\nv 1 0 0\nv 0 1 0\n'; repeat 3000 'f 1 2 3\n'; } | try 0 "model: one triangle 3000 times" geometry/wall.obj

finish
