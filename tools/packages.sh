# need PACKAGE...: installs the Debian packages that are missing, to be sourced by the scripts at the root. With all of
# them there it touches nothing. Uses sudo where the user is not root.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    echo "installing ${missing[*]}" >&2
    local as_root=()
    if [ "$(id -u)" != 0 ]; then as_root=(sudo); fi
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >&2
}

build_packages=(g++ cmake ninja-build libfreeimage-dev libcli11-dev libglut-dev)
test_packages=("${build_packages[@]}" libgtest-dev pkg-config binutils xvfb)
check_packages=("${test_packages[@]}" clang-format)
