#!/usr/bin/env bash
# What the pages under docs/ show works: scene files render, programs compile and run, command lines end well; no option of
# halvorne is missing. The pieces of scene text in docs/scene-format.md are looked at by test_lint.sh.
# In a fenced block a first line "# folder/file" names the file that the block is. Other .hv blocks are added to a copy of
# the scene of docs/first-scene.md; C and C++ blocks without a main function go into one.
# usage: test_docs.sh docs-folder include-folder libhv.so halvorne hdr2png obj2scene c-compiler c++-compiler flags
source "$(dirname "$0")/check.sh"
docs=$1 include=$2 library=$3 halvorne=$4 cc=$7 cxx=$8 flags=${9:-}
PATH=$(dirname "$4"):$(dirname "$5"):$(dirname "$6"):$PATH

# Writes each block of a page into the present folder: under its own name, or as block<number>.<language>.
extract() {
    awk '/^```[a-z]/ { language = substr($1, 4); fresh = 1; number++; next }
         /^```/ { if (file) close(file); file = ""; next }
         fresh {
             fresh = 0
             file = $0 ~ /^# [a-z_]+(\/[a-z_.]+)+$/ ? $2 : sprintf("block%03d.%s", number, language)
             place = file
             if (sub(/\/[^\/]*$/, "", place)) system("mkdir -p " place)
         }
         file { print > file }' "$1"
}

# check_scene FOLDER TEXT: renders without a complaint, and something is seen.
check_scene() {
    expect_status 0 "$2" "$halvorne" "$1" --size 32x18 --frames 2 --seed 1 -o "$scratch/check.hdr"
    ! grep -E "error :\(|warning :\(" "$scratch/stdout" >&2 || fail "$2: complains"
    awk '/^avgerage of/ { seen = $(NF - 5) > 0.01 && $(NF - 4) > 0.01 && $(NF - 3) > 0.01 } END { exit !seen }' \
        "$scratch/stdout" || fail "$2: is black"
}

# Any small picture will do for those that the blocks speak of.
add_pictures() {
    local name
    mkdir -p "$1/image"
    sed -n 's/^ *\(image\|backdrop\) "\(.*\)"/\2/p' "$1"/*/*.hv | while read -r name; do
        cp "$scratch/small.${name##*.}" "$1/image/$name"
    done
}

compile() { # STANDARD COMPILER ARGUMENTS...
    # shellcheck disable=SC2086  # flags are a list of words
    expect_status 0 "$page: compile" "$2" "-std=$1" -Wall -Wextra -Werror $flags -I"$include" "${@:3}"
}

check_code() { # FILE STANDARD COMPILER
    if grep -q 'main(' "$1"; then
        compile "$2" "$3" "$1" -o host "$library" -Wl,-rpath,"$(dirname "$library")" -lm
        expect_status 0 "$page: program of $1" ./host
        return
    fi
    { printf '#include <hv.h>\n#include <hvx.h>\nint main(void)\n{\n    const int camera = 0, shader = 0, object = 0, part = 0;\n'
      printf '    (void)camera, (void)shader, (void)object, (void)part;\n'
      cat "$1"; printf '}\n'; } >"body_$1"
    compile "$2" "$3" -fsyntax-only "body_$1"
}

check_commands() { # FILE
    local program arguments
    while read -r program arguments; do
        if [ "$program" = halvorne ] && [[ $arguments != lint* ]]; then
            [[ $arguments == *--size* || $arguments == *--region* ]] || arguments+=" --size 32x18"
            [[ $arguments == *--frames* ]] || arguments+=" --frames 2"
        fi
        # shellcheck disable=SC2086
        case $program in halvorne | hdr2png | obj2scene) expect_status 0 "$page: $program $arguments" $program $arguments ;; esac
    done <"$1"
}

first=$scratch/pages/first-scene/first
for ending in hdr exr; do : >"$scratch/small.$ending"; done
code_count=0
for page in first-scene $(basename -s .md "$docs"/*.md); do
    mkdir -p "$scratch/pages/$page" && cd "$scratch/pages/$page" || exit 1
    if [ "$page" = scene-format ]; then continue; fi
    extract "$docs/$page.md"
    for scene in */camera; do
        if [ -d "$scene" ]; then
            add_pictures "${scene%/camera}"
            check_scene "${scene%/camera}" "$page: ${scene%/camera}"
            expect_status 0 "$page: lint ${scene%/camera}" "$halvorne" lint "${scene%/camera}"
        fi
    done
    if [ ! -s "$scratch/small.png" ]; then # the first page
        for ending in hdr exr; do "$halvorne" -q first --size 16x8 --frames 1 -o "$scratch/small.$ending"; done
        hdr2png "$scratch/small.hdr" "$scratch/small.png"
    fi
    [ -e first ] || cp -r "$first" first
    check_commands <(cat block*.sh 2>/dev/null)
    if compgen -G "block*.hv" >/dev/null; then
        cp block*.hv first/shader
        add_pictures first
        check_scene first "$page: its blocks of scene text"
    fi
    for block in block*.c block*.cpp; do
        case $block in *\**) continue ;; *.c) check_code "$block" c99 "$cc" ;; *) check_code "$block" c++20 "$cxx" ;; esac
        code_count=$((code_count + 1))
    done
done
"$halvorne" --help | grep -oE -- '^  (-[a-zA-Z],)?--[a-z-]+' | grep -oE -- '--[a-z-]+' | while read -r option; do
    grep -qe "\`$option[\` ]" "$docs/output.md" || echo "$option"
done >"$scratch/missing"
[ ! -s "$scratch/missing" ] || fail "docs/output.md does not name $(tr '\n' ' ' <"$scratch/missing")"
[ "$code_count" -ge 4 ] || fail "only $code_count blocks of C and C++"
finish
