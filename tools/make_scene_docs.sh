#!/usr/bin/env bash
# Renews the tables of docs/scene-format.md from those of the reader: tools/make_scene_docs.sh [halvorne]. Each stands
# between a line "<!-- keywords of NAME -->" and the next "<!-- end -->"; the text around them is left alone. A test
# compares the two.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
halvorne=${1:-$root/build/release/apps/halvorne}
page=$root/docs/scene-format.md
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

"$halvorne" keywords >"$scratch/tables"
awk '
    FNR == NR {
        if (/^<!-- keywords of /) name = $0
        if (name != "") table[name] = table[name] $0 "\n"
        if (/^<!-- end -->$/) name = ""
        next
    }
    /^<!-- keywords of / { printf "%s", $0 in table ? table[$0] : $0 " is no block any more\n"; inside = 1 }
    !inside { print }
    /^<!-- end -->$/ { inside = 0 }
' "$scratch/tables" "$page" >"$scratch/page"
cp "$scratch/page" "$page"

# A new block has no place yet: it is for the author of the page to give it one.
grep '^<!-- keywords of ' "$scratch/tables" | while read -r line; do
    grep -qxF "$line" "$page" || echo "make_scene_docs.sh: the page has no place for '$line'" >&2
done
