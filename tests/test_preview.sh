#!/usr/bin/env bash
# The preview window on a display of its own: what it shows, what closing it leaves behind, and what happens without.
# usage: test_preview.sh halvorne watch_window preview_host
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
halvorne=$1 watch=$2 host=$3
if ! command -v Xvfb >/dev/null; then
    echo "skipped: no Xvfb to show windows on"
    exit 77
fi

# The drivers of OpenGL keep what they found until the process ends, and start threads of their own.
export ASAN_OPTIONS=$ASAN_OPTIONS:detect_leaks=0
export TSAN_OPTIONS=${TSAN_OPTIONS:+$TSAN_OPTIONS:}ignore_noninstrumented_modules=1
export LIBGL_ALWAYS_SOFTWARE=1 MESA_SHADER_CACHE_DISABLE=true HOME=$scratch
cd "$scratch" || exit 1

# start_display NAME ARGUMENTS...: sets $server and $DISPLAY.
start_display() {
    local name=$1
    shift
    Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp "$@" 3>"$name" 2>/dev/null &
    server=$!
    disown  # its end is no news
    servers="$servers $server"
    for _ in $(seq 300); do
        [ -s "$name" ] && break
        sleep 0.1
    done
    DISPLAY=:$(cat "$name")
    export DISPLAY
    [ "$DISPLAY" != : ] || fail "Xvfb does not start"
}
servers=
# shellcheck disable=SC2086  # a list of numbers
trap 'kill $servers 2>/dev/null; rm -rf "$scratch"' EXIT

# start COMMAND...: in the background as $process, output into $scratch/log.
start() {
    timeout -k 5 120 "$@" >log 2>errors &
    process=$!
}

# expect_end TEXT: $process ends with status 0.
expect_end() {
    local status=0
    wait "$process" || status=$?
    [ "$status" = 0 ] || fail "$1: status $status, $(tail -n 1 errors)"
}

# await PATTERN COUNT: until the log has that many lines, or $process has ended.
await() {
    for _ in $(seq 600); do
        [ "$(grep -cE -- "$1" log)" -ge "$2" ] && return
        kill -0 "$process" 2>/dev/null || break
        sleep 0.05
    done
    fail "the log has no $2 lines '$1'"
}

frames() { grep -c '^performance' log; }
look() { "$watch" "$@" >watched || fail "watch_window $*"; }

# Three walls of different colours in three corners, so that rows, columns and channels cannot be mistaken; the sky
# behind them is brighter than a screen.
make_scene walls
sed -i 's/color 0.5 0.5 0.5/color 1.5 1.5 1.5/' walls/light/sky.hv
sed -i 's/resolution 8 6/resolution 96 64/' walls/camera/main.hv
rm walls/geometry/*
add_wall() { # NAME X Y RED GREEN BLUE
    printf 'shader\n name "%s"\n surface_shader\n lambertian\n color %s %s %s\n end\n end\nend\n' "$1" "$4" "$5" "$6" \
        >"walls/shader/$1.hv"
    local right=$(($2 + 2)) top=$(($3 + 2))
    printf 'v %s %s 0\nv %s %s 0\nv %s %s 0\nv %s %s 0\nf 1 2 3 4\n' "$2" "$3" $right "$3" $right $top "$2" $top \
        >"walls/geometry/$1.obj"
    printf 'object\n name %s\n shader "%s"\n obj "geometry/%s.obj"\nend\n' "$1" "$1" "$1" >"walls/geometry/$1.hv"
}
add_wall red -3 0 0.6 0.1 0.05
add_wall green 0 0 0.1 0.5 0.2
add_wall blue -2 -2 0.05 0.1 0.4

start_display first

# -- The window is the film, and shows the picture that is written: all of it, and a region with black outside
for region in "" "--region 20,10,70,50"; do
    # shellcheck disable=SC2086  # options are a list of words
    start "$halvorne" walls --preview --frames 8 --seed 1 $region -o shown.ppm
    look wait
    [ "$(cat watched)" = "96 64" ] || fail "the window is $(cat watched)"
    await 'close the window to exit' 1
    look match shown.ppm
    look close
    expect_end "closed when finished $region"
    [ "$(frames)" = 8 ] || fail "$(frames) frames of 8"
    # shellcheck disable=SC2086
    "$halvorne" walls --frames 8 --seed 1 $region -o plain.ppm >/dev/null 2>&1
    cmp shown.ppm plain.ppm || fail "the window changes the picture $region"
done
colours=$(tail -c $((3 * 96 * 64)) plain.ppm | od -An -v -tu1 -w3 | sort -u | wc -l)
[ "$colours" -ge 5 ] || fail "the picture has $colours colours only"

# -- Between frames the window listens: it is resized, hidden and shown. Closed early, it leaves the mean reached.
start "$halvorne" walls --preview --frames 65535 --seed 1 -o early.pfm
look wait
for action in "resize 300 200" "resize 1 1" "hide" "show" "resize 20 90" "resize 96 64"; do
    before=$(frames)
    # shellcheck disable=SC2086
    look $action
    await '^performance' $((before + 2))
done
look close
expect_end "closed early"
reached=$(frames)
[ "$reached" -lt 65535 ] || fail "closing does not end the render"
expect_text errors 'stopped early' "closed early"
"$host" stop walls plain.pfm 65535 "$reached" >/dev/null
cmp early.pfm plain.pfm || fail "closed after $reached frames, the picture is not their mean"

# -- The closing itself writes the picture, not only the end of the session
rm early.pfm
start "$host" early walls early.pfm 65535
await '^performance' 2
look close
expect_end "not finalized"
"$host" stop walls plain.pfm 65535 "$(frames)" >/dev/null
cmp early.pfm plain.pfm || fail "closing leaves no picture"

# -- A larger window is black beside the picture
start "$halvorne" walls --preview --frames 2 --seed 1 -o shown.ppm
await 'close the window to exit' 1
look resize 200 100
look match shown.ppm
look close
expect_end "closed in another size"

# -- A stop by the host ends the frames, not the window
start "$halvorne" walls --preview --frames 65535 -o stopped.ppm
await '^performance' 2
read -r child _ <"/proc/$process/task/$process/children"
kill -INT "$child"
await 'close the window to exit' 1
look match stopped.ppm
look close
expect_end "stopped"

# -- A connection that is cut costs the frames to come, not those that were rendered
start "$halvorne" walls --preview --frames 65535 --seed 1 -o cut.pfm
await '^performance' 2
look cut
expect_end "cut"
expect_text log '^error :\( 	preview - the display is gone' "cut"
"$host" stop walls plain.pfm 65535 "$(frames)" >/dev/null
cmp cut.pfm plain.pfm || fail "cut: the picture is not the mean of $(frames) frames"

# -- Several windows in one process, one after the other
start "$host" twice walls one.ppm two.ppm
finished=0
for picture in one two; do
    look wait
    finished=$((finished + 1))
    await 'close the window to exit' $finished
    look match $picture.ppm
    look close
    look gone
done
expect_end "two windows"

# -- A whole session in one call
start "$host" go walls
await 'close the window to exit' 1
look close
expect_end "hvGo"
expect_text log '^         click to close the preview window\. happy rendering\. thank you!         $' "hvGo"

# -- Without a camera there is nothing to show
mkdir -p nothing/camera
expect_status 0 "no camera" "$host" go nothing
expect_text stdout 'there is no camera' "no camera"

# -- A film larger than any screen
start "$halvorne" walls --preview --frames 1 --size 40000x20 --region 0,0,64,20 -o long.ppm
await 'close the window to exit' 1
look close
expect_end "long film"

# -- The server goes in the middle of a render
start_display second
start "$halvorne" walls --preview --frames 65535 -o orphan.ppm
await '^performance' 2
kill -9 "$server"
expect_end "no server any more"
[ -s orphan.ppm ] || fail "the server took the picture with it"

# -- Nor is there a window for the rest of that process
start_display third
start "$host" twice walls one.ppm two.ppm
await 'close the window to exit' 1
rm one.ppm two.ppm
kill -9 "$server"
expect_end "no server for the second window"
expect_text log '^error :\( 	preview - .*, no window can open in this process' "no server for the second window"
[ -s one.ppm ] && [ ! -e two.ppm ] || fail "no server for the second window: $(echo ./*.ppm)"

# -- No display: one line, and nothing is begun that takes long; these films would take hours
start_display fourth -extension GLX
while IFS='|' read -r display pattern; do
    export DISPLAY=$display
    expect_status 1 "display '$display'" "$halvorne" walls --preview --size 4000x4000 --frames 65535 -o none.ppm
    expect_text stdout "^error :\( 	preview - .*$pattern" "display '$display'"
    [ "$(grep -c '^error' stdout)" = 1 ] && [ ! -s stderr ] || fail "display '$display': not one line"
    grep -q '^gaffer\|^photon\|^performance' stdout && fail "display '$display': work was begun"

    expect_status 1 "quiet, display '$display'" "$halvorne" -q walls --preview -o none.ppm
    [ "$(cat stdout stderr | wc -l)" = 1 ] || fail "quiet, display '$display': not one line"
    expect_status 0 "hvGo, display '$display'" "$host" go walls
    expect_status 0 "API, display '$display'" "$host" twice walls none.ppm none.ppm
    [ "$(grep -c '^error' stdout)" = 2 ] || fail "API, display '$display': not one line a session"
    expect_status 0 "late, display '$display'" "$host" late walls none.ppm
    expect_text stdout "^error :\( 	preview - .*$pattern" "late, display '$display'"
    grep -q '^performance' stdout && fail "late, display '$display': rendered all the same"
done <<END
|DISPLAY is not set
:59999|':59999' cannot be reached
$DISPLAY|'$DISPLAY' has no OpenGL
END
finish
