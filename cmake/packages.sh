# shellcheck shell=bash
# Sourced by the scripts of the top folder. need PACKAGE...: installs what is missing, or names it and stops.

need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        if ! sudo -n true 2>/dev/null; then
            echo "$0: these Debian packages are missing and cannot be installed without root: ${missing[*]}" >&2
            echo "$0: install them with: apt-get install ${missing[*]}" >&2
            exit 2
        fi
        as_root=(sudo -n)
    fi
    echo "installing ${missing[*]}"
    if ! { "${as_root[@]}" apt-get update -q && "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -q -y --no-install-recommends "${missing[@]}"; } >"${TMPDIR:-/tmp}/quarnel-apt.$$" 2>&1; then
        tail -n 20 "${TMPDIR:-/tmp}/quarnel-apt.$$" >&2
        rm -f "${TMPDIR:-/tmp}/quarnel-apt.$$"
        echo "$0: could not install: ${missing[*]}" >&2
        exit 2
    fi
    rm -f "${TMPDIR:-/tmp}/quarnel-apt.$$"
}

BUILD_PACKAGES=(cmake ninja-build g++ g++-multilib libcli11-dev libtomlplusplus-dev zlib1g-dev libzstd-dev)
ABI_PACKAGES=("${BUILD_PACKAGES[@]}" abigail-tools)
CHECK_PACKAGES=("${ABI_PACKAGES[@]}" googletest clang clang-format python3 binutils pkg-config valgrind mandoc
    lnav less zsh zstd)
FUZZ_PACKAGES=("${BUILD_PACKAGES[@]}" clang libclang-rt-14-dev)
PACKAGE_PACKAGES=("${BUILD_PACKAGES[@]}" binutils dpkg-dev lintian pkg-config)
BENCH_PACKAGES=("${BUILD_PACKAGES[@]}" pkg-config python3 libbenchmark-dev libspdlog-dev libfmt-dev libglib2.0-dev libbsd-dev
    libconfuse-dev libpcre2-dev gnuplot-nox valgrind)
