# Sourced by the scripts beside it: makes sure that the machine has what the build needs.
# shellcheck shell=bash

set -u
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=$(nproc)

say() { printf '== %s\n' "$*"; }
fail() { printf '%s: %s\n' "$(basename "$0")" "$*" >&2; exit 1; }

# install_packages PACKAGE...: installs those of the Debian packages that are missing.
install_packages() {
    local missing=() package
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    local as=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "these packages are missing and need root to install: ${missing[*]}"
        as=(sudo)
    fi
    say "installing ${missing[*]}"
    "${as[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq \
        || fail "could not read the package lists (refused, or no network); needed: ${missing[*]}"
    "${as[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null \
        || fail "could not install ${missing[*]}"
}

build_packages=(g++ cmake ninja-build libexpat1-dev)
test_packages=(libgtest-dev pkg-config python3 tzdata zip unzip procps)

# build PRESET [TARGET...]: configures the preset and builds the targets (all when none is named).
build() {
    local preset=$1 target
    shift
    local targets=()
    for target in "$@"; do targets+=(--target "$target"); done
    (cd "$root" && cmake --preset "$preset" >/dev/null) || fail "cmake could not configure '$preset'"
    say "building ($preset)"
    cmake --build "$root/build/$preset" -j "$jobs" "${targets[@]}" | tail -n 1
    [ "${PIPESTATUS[0]}" -eq 0 ] || fail "the build failed; 'cmake --build build/$preset' shows why"
}
