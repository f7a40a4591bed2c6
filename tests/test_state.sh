#!/usr/bin/env bash
# The table of module-wide state in docs/architecture.md names exactly the writable data of the library.
# usage: test_state.sh architecture.md libraries...
source "$(dirname "$0")/check.sh"
document=$1
shift

# Rows of that table: "| `Name`, `Other` | ...". They stand under the heading "Module-wide state".
sed -n '/^## Module-wide state/,/^## /p' "$document" | sed -nE 's/^\| (`[^|]*) \|.*/\1/p' | grep -oE '`[^`]+`' |
    tr -d '`' | sort >"$scratch/documented"

# Writable sections only. Compilers add guards and sanitizers their own symbols, none of them inside the namespace, and
# number the members of a record that they keep apart.
objdump -t "$@" | sed -E 's/\.[0-9]+$//' | c++filt | sed -nE 's/^[0-9a-f]{16} .{7} (\.(data|bss|tdata|tbss)[^ \t]*)\t[0-9a-f]+ +(\.hidden +)?(hv::.*)$/\1 \4/p' |
    grep -v '^\.data\.rel\.ro' | sed -E 's/^[^ ]+ //; s/\(anonymous namespace\):://g; s/\[abi:[a-z0-9]+\]//g; s/^hv:://' |
    grep -vE '^(\.|_)' | sort -u >"$scratch/present"

[ -s "$scratch/present" ] || fail "no writable symbols found"
diff "$scratch/documented" "$scratch/present" >&2 || fail "documented (<) and present (>) state differ"
finish
