#!/usr/bin/env bash
# Each example renders the picture that it is asked for.
# usage: test_examples.sh programs...
source "$(dirname "$0")/check.sh"
for program in "$@"; do
    picture=$scratch/$(basename "$program").hdr
    expect_status 0 "$(basename "$program")" "$program" "$picture"
    [ "$(head -c 10 "$picture" 2>/dev/null)" = "#?RADIANCE" ] || fail "$(basename "$program"): no picture"
    expect_status 2 "$(basename "$program") without a name" "$program"
done
finish
