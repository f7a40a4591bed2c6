#!/usr/bin/env bash
# A build without the preview window needs nothing of GLUT, OpenGL and X11, and renders. Only the session differs: it is
# built anew and linked with the other folders as they are.
# usage: test_windowless.sh source-folder c++-compiler flags=... type=... halvorne libhv.so libraries...
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
root=$1 cxx=$2 flags=${3#flags=} type=${4#type=} halvorne=$5 library=$6
shift 6

without=()
for package in GLUT OpenGL X11; do without+=("-DCMAKE_DISABLE_FIND_PACKAGE_$package=ON"); done
expect_status 0 "configure" cmake -G Ninja -S "$root" -B "$scratch/build" -DHV_PREVIEW=OFF "${without[@]}" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_BUILD_TYPE="$type" -DHV_WARNINGS_AS_ERRORS=ON \
    -DHV_BUILD_TESTS=OFF -DHV_BUILD_BENCH=OFF
grep -qE 'lib(glut|GL|GLX|OpenGL|X11)\.' "$scratch/build/build.ninja" && fail "the build links a window"
timeout 500 cmake --build "$scratch/build" --target hv_session >"$scratch/log" 2>&1 ||
    fail "build: $(tail -n 3 "$scratch/log")"

folders=()
for folder in "$@"; do
    [ "$(basename "$folder")" = libhv_session.a ] && folder=$scratch/build/src/libhv_session.a
    folders+=("$folder")
done
# shellcheck disable=SC2086  # flags are a list of words
expect_status 0 "link" "$cxx" $flags -shared -fopenmp -o "$scratch/$(basename "$library")" \
    -Wl,-soname,"$(basename "$library")" -Wl,--no-undefined \
    -Wl,--whole-archive "${folders[@]}" -Wl,--no-whole-archive -lfreeimage
readelf -d "$scratch/$(basename "$library")" | grep NEEDED | grep -E 'glut|GL|X11' && fail "the library needs a window"

# The setter stays: one warning, and the frames run.
make_scene "$scratch/tiny"
expect_status 0 "render" env -u DISPLAY LD_LIBRARY_PATH="$scratch" "$halvorne" "$scratch/tiny" --preview \
    -o "$scratch/tiny.ppm"
[ "$(grep -c '^warning .*preview - this build has no window' "$scratch/stdout")" = 1 ] || fail "not one warning"
[ "$(grep -c '^performance' "$scratch/stdout")" = 2 ] && [ -s "$scratch/tiny.ppm" ] || fail "nothing was rendered"
finish
