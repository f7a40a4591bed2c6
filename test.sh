#!/usr/bin/env bash
# Builds and runs all tests: ./test.sh [preset...], the presets being release, debug, asan and tsan.
# Default: release and asan. Installs what is missing (Debian). Tests that need real models find them by HV_TEST_DATA.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$root/tools/packages.sh"
need "${test_packages[@]}"

presets=("$@")
if [ $# -eq 0 ]; then presets=(release asan); fi

cd "$root"
for preset in "${presets[@]}"; do
    echo "== $preset =="
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset"
    ctest --preset "$preset" --parallel "$(nproc)"
done
