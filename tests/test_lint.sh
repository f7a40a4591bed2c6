#!/usr/bin/env bash
# `halvorne lint` on the command line; the sample scenes, the pages and the reference of the format under its eyes.
# usage: test_lint.sh folder-of-scenes folder-of-pages halvorne
source "$(dirname "$0")/check.sh"
source "$(dirname "$0")/scene.sh"
scenes=$1 docs=$2 halvorne=$3
cd "$scratch" || exit 1
make_scene tiny
make_scene lint
cp -r tiny faulty
sed -i 's/field_of_view 40/field_of_veiw 40/' faulty/camera/main.hv
mkdir empty

# -- Exit status, streams, paths as they were given
expect_status 0 "a sound scene" "$halvorne" lint tiny
expect_empty stdout "a sound scene"
expect_status 1 "a faulty scene" "$halvorne" lint ./faulty/
wanted="./faulty/camera/main.hv:9:9: error: 'field_of_veiw' is no keyword of 'pose' (line 5): did you mean"
[ "$(tr '`' "'" <stdout)" = "$wanted 'field_of_view'?" ] ||
    fail "a faulty scene: $(cat stdout)"
expect_empty stderr "a faulty scene"
expect_status 1 "an empty folder" "$halvorne" lint empty
expect_text stdout '^empty: error: no scene file is in the folder$' "an empty folder"
expect_status 1 "no-chdir" "$halvorne" lint --no-chdir tiny
expect_text stdout '^tiny/geometry/wall.hv:3:9: error: the file `geometry/wall.obj` cannot be opened' "no-chdir"
echo 'usemtl rust' >>faulty/geometry/wall.obj
expect_status 1 "a model" "$halvorne" lint "$scratch/faulty"
expect_text stdout "^$scratch/faulty/geometry/wall.obj:6:8: error: nothing defines the shader .rust.$" "a model"
for arguments in "lint" "lint nowhere" "lint tiny/camera/main.hv" "lint --what tiny" "lint tiny tiny" "keywords x"; do
    # shellcheck disable=SC2086  # a line is a list of words
    expect_status 2 "usage '$arguments'" "$halvorne" $arguments
    if [ ! -s stderr ] || [ -s stdout ]; then fail "usage '$arguments': not told on standard error alone"; fi
done
for scene in ./lint lint/; do
    expect_status 0 "the scene '$scene'" "$halvorne" "$scene" -q -o lint.hdr
    [ -s lint.hdr ] || fail "the scene '$scene' was not rendered"
    rm -f lint.hdr
done

# -- The page shows the tables of the reader
"$halvorne" keywords >tables
[ "$(grep -c '^| `' tables)" -gt 120 ] || fail "the reader lists too few keywords"
sed -n '/^<!-- keywords of /,/^<!-- end -->$/p' "$docs/scene-format.md" | diff - tables >&2 ||
    fail "docs/scene-format.md is behind the reader (<, >): run tools/make_scene_docs.sh"

# -- Scenes and examples are without fault. Examples are pieces: what they name, and what wears them, may be missing.
for folder in "$scenes"/*/; do
    expect_status 0 "$folder" "$halvorne" lint "$folder"
    cat stdout >&2
done
for page in "$docs"/*.md; do
    awk -v name="$(basename "$page" .md)" '/^```hv$/ { ++count; inside = 1; next } /^```/ { inside = 0 }
        inside { print > (name "-" count ".hv") }' "$page"
done
examples=0
for example in *-*.hv; do
    rm -rf piece && make_scene piece && rm -r piece/{light,render}
    cp "$example" piece/shader/example.hv
    "$halvorne" lint piece |
        grep -vE 'nothing (defines|wears)|cannot be opened|is in none of|only the first camera|there is none' >found
    [ ! -s found ] || { fail "the example $example:" && cat found >&2; }
    examples=$((examples + 1))
done
[ "$examples" -ge 20 ] || fail "only $examples examples were found"
finish
