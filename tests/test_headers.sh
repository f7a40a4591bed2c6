#!/usr/bin/env bash
# The public headers stand alone in C99 and C++, and their two sets of enumerators carry the same numbers.
# usage: test_headers.sh include-folder c-compiler c++-compiler
source "$(dirname "$0")/check.sh"
include=$1 cc=$2 cxx=$3

for header in hv.h hvx.h; do
    echo "#include \"$header\"" >"$scratch/use.c"
    cp "$scratch/use.c" "$scratch/use.cpp"
    expect_status 0 "$header in C99" "$cc" -std=c99 -pedantic -Wall -Wextra -Werror -Wstrict-prototypes -fsyntax-only -I"$include" "$scratch/use.c"
    expect_status 0 "$header in C++" "$cxx" -std=c++17 -pedantic -Wall -Wextra -Werror -fsyntax-only -I"$include" "$scratch/use.cpp"
done

# "enum class Material : int { ThinDielectric = 2" and "enum Material { HV_MATERIAL_THIN_DIELECTRIC = 2" both become
# "MATERIAL_THIN_DIELECTRIC 2".
enumerators() {
    "$1" -std="$2" -E -P -I"$include" -x "$3" "$include/hv.h" | tr '\n' ' ' | grep -oE 'enum (class )?[A-Za-z]+ (: int )?\{[^}]*\}' |
        sed -E 's/enum (class )?([A-Za-z]+) (: int )?\{/\2,/' | while IFS=, read -r -a items; do
            name=$(snake "${items[0]}")
            for item in "${items[@]:1}"; do
                read -r word _ value <<<"$item"
                [ -n "${value:-}" ] && echo "${name}_$(snake "$word") ${value%\}}" | sed -E "s/^${name}_HV_${name}_/${name}_/"
            done
        done | sed 's/ *$//' | sort
}
snake() { sed -E 's/([a-z])([A-Z0-9])/\1_\2/g' <<<"$1" | tr 'a-z' 'A-Z' | sed -E 's/_([0-9]+)$/\1/'; }

enumerators "$cc" c99 c >"$scratch/c"
enumerators "$cxx" c++20 c++ >"$scratch/cpp"
[ "$(wc -l <"$scratch/c")" -ge 45 ] || fail "only $(wc -l <"$scratch/c") enumerators found in C"
diff "$scratch/c" "$scratch/cpp" >&2 || fail "enumerators differ between C and C++"
finish
