#!/usr/bin/env bash
# The shared library exports what its headers declare, no more and no less.
# usage: test_exports.sh include-folder libhv.so soname
source "$(dirname "$0")/check.sh"
include=$1 library=$2 soname=$3

nm -D --defined-only "$library" >"$scratch/nm"
# Sanitizers add names of their own, none of which starts with hv.
awk '{ print $3 }' "$scratch/nm" | sed 's/@.*//' | grep -vE '^(__|_?(init|fini|edata|end)$)' | sort >"$scratch/exported"
cat "$include/hv.h" "$include/hvx.h" | sed -nE 's/^HV_API .*[ *](hvx?[A-Z][A-Za-z]*)\(.*/\1/p' | sort >"$scratch/declared"
[ "$(wc -l <"$scratch/declared")" -ge 130 ] || fail "only $(wc -l <"$scratch/declared") declarations found"
diff "$scratch/declared" "$scratch/exported" >&2 || fail "headers (<) and exports (>) differ"

readelf -d "$library" | grep -q "SONAME.*\[$soname\]" || fail "soname is not $soname"

for pair in Initialize Finalize; do
    sky=$(awk -v name="hv${pair}SkyLight" '$3 ~ "^" name { print $1 }' "$scratch/nm")
    geometry=$(awk -v name="hv${pair}GeometryLight" '$3 ~ "^" name { print $1 }' "$scratch/nm")
    [ -n "$sky" ] && [ "$sky" = "$geometry" ] || fail "hv${pair}GeometryLight is not hv${pair}SkyLight"
done

# The host's own formats and threads are its affair: nothing beyond what the library needs is linked.
if ldd "$library" | grep -qiE 'embree|gtest|CLI11'; then fail "the library links a tool of ours"; fi
finish
