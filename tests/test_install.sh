#!/usr/bin/env bash
# The installed tree serves a C host through CMake and through pkg-config, also after it was moved.
# usage: test_install.sh build-folder host-folder c-compiler c-flags
source "$(dirname "$0")/check.sh"
build=$1 host=$2 cc=$3 flags=${4:-}

expect_status 0 "install" cmake --install "$build" --prefix "$scratch/first"
mv "$scratch/first" "$scratch/tree" || fail "nothing was installed"
prefix=$scratch/tree
libdir=$(dirname "$(find "$prefix" -name 'libhv.so' | head -n 1)")

expect_status 0 "find_package: configure" cmake -G Ninja -S "$host" -B "$scratch/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_COMPILER="$cc" -DCMAKE_C_FLAGS="$flags"
expect_status 0 "find_package: build" cmake --build "$scratch/cmake"
expect_status 0 "find_package: run" "$scratch/cmake/host"

if command -v pkg-config >/dev/null; then
    export PKG_CONFIG_PATH=$libdir/pkgconfig
    version=$(pkg-config --modversion hv) || fail "pkg-config does not know hv"
    # shellcheck disable=SC2046,SC2086  # flags are lists of words
    expect_status 0 "pkg-config: build" "$cc" -std=c99 $flags $(pkg-config --cflags hv) "$host/host.c" -o "$scratch/host" $(pkg-config --libs hv) -lm
    expect_status 0 "pkg-config: run" env LD_LIBRARY_PATH="$libdir" "$scratch/host"
    [ -e "$libdir/libhv.so.$version" ] || fail "no library of version $version"
fi

if [ -e "$prefix/bin/halvorne" ]; then
    expect_status 0 "installed program" "$prefix/bin/halvorne" --version
fi
finish
