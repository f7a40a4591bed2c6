#!/usr/bin/env bash
# Where the time of a render goes: bench/profile.sh PROGRAM SCENE [options of halvorne]
# PROGRAM is a halvorne of a release build. Needs perf. Prints the shares of traversal, shading, lights, textures and random
# numbers, then the hottest functions.
set -euo pipefail

if [ $# -lt 2 ]; then
    sed -n '2,4s/^# //p' "$0" >&2
    exit 2
fi
program=$(realpath "$1") scene=$2
shift 2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

perf record -q -F 499 -o "$folder/perf.data" -- \
    "$program" "$scene" -q -o "$folder/picture.hdr" --size 480x270 --frames 8 "$@" 2>"$folder/record.log" ||
    { cat "$folder/record.log" >&2; exit 1; }
perf report -i "$folder/perf.data" --stdio --no-children -F overhead,dso,symbol -g none 2>/dev/null |
    grep -E '^ +[0-9.]+%' > "$folder/functions"

# The first class whose pattern a function's name matches takes its share.
awk '
function class(name) {
    if (name ~ /RadicalInverse|HardwareRandom|BeginRandomStream|FillSampling|getrandom/) return "random numbers"
    if (name ~ /LookupTexture|FetchTexel|Texel|SlotTexture|powf|ReadImagePixel/) return "textures"
    if (name ~ /PickEmitter|SampleSky|SkyDensity|SkyUV|SkyColor|SkyRadiance|SampleEmitter|PickIndex|SpotFactor|SampleAnalytic|SkyTexel|SampleLight|MeanOfSamples|LightDirect|SurfaceEmission|MissRadiance|SkyDirect/) return "lights"
    if (name ~ /Walk|Trace(Closest|Occlusion|Probe)|Occlude|Intersect|Instance|Leaf|Leaves|Lanes|Slab|FindLeaves|Attenuate|TestLoose|TestLong|EvaluateShadow/) return "traversal"
    if (name ~ /^hv::|Evaluate|Scatter|Radiance|Ward|Cosine|sincos|sinf|cosf|expf|logf|atan2|acosf|Slot|Layer|Spawn|Derive|Hair|Longitud|Bessel|memset|memcpy/) return "shading"
    return "the rest"
}
{
    share = $1; sub(/%/, "", share)
    name = $0; sub(/^ *[0-9.]+% +[^ ]+ +\[[.k]\] +/, "", name)
    gsub(/\(anonymous namespace\)::/, "", name); sub(/\(.*/, "", name)
    sum[class(name)] += share
    total += share
}
END {
    for (c in sum) printf "%-16s %5.1f %%\n", c, 100 * sum[c] / total | "sort -k1,1"
}' "$folder/functions"
echo "hottest:"
head -12 "$folder/functions"
