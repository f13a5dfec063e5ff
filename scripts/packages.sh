# Sourced by scripts/check: the packages are built twice, in two folders, installed in a clean root, used there, and
# purged. The root is one of this machine's own release, for which they are built.
# shellcheck shell=bash

# The helper without an application: it starts, serves when it is asked to, is what the doctor sees, and ends. Its
# units are switched on.
package_helper() {
    local helper=/usr/libexec/loginhelper.app/Contents/MacOS/loginhelper wanted
    "$helper" --version && loginhelperctl --version
    for wanted in graphical-session sockets; do
        ls /etc/systemd/user/$wanted.target.wants/*.loginhelper.*
    done
    "$helper" --serve &
    for wanted in $(seq 100); do
        ! loginhelperctl test >/dev/null 2>&1 || break
        sleep 0.1
    done
    loginhelperctl test
    loginhelperctl doctor | grep -x "service: answers"
    loginhelperctl quit && wait
}

# What is done in the root, by root, in a folder with the packages and the consumer programs.
package_commands() {
    local before
    files() { find / -xdev ! -path '/proc/*' ! -path '/sys/*' ! -path '/dev/*' ! -path '/tmp/*' ! -path '/var/log/*' \
        ! -path '/var/cache/*' ! -path '/var/lib/dpkg/*' ! -path '/var/lib/apt/*' ! -path "$1/*" | sort; }
    cd "$1" || return
    set -e
    before=$(files "$1")
    apt-get install -y -qq --no-install-recommends ./*.deb >install.log 2>&1 || { cat install.log; return 1; }
    echo "installed: $(dpkg-query -W -f '${Package} ${Version}, ' liblfoundation1 liblfoundation-dev loginhelper)"

    export HOME="$1/home" XDG_RUNTIME_DIR="$1/run"
    mkdir -m 700 "$HOME" "$XDG_RUNTIME_DIR"
    package_helper

    cmake -S consumer -B built -G Ninja -DBLOCKS=none >cmake.log 2>&1 && cmake --build built >>cmake.log 2>&1 ||
        { cat cmake.log; return 1; }
    for form in lfoundation static; do
        "built/names-$form"
        [ "$("built/signals-$form")" = "the program's" ] && [ "$("built/signals-threads-$form")" = "the library's" ]
    done
    # shellcheck disable=SC2046
    c++ -std=c++20 consumer/names.cpp -o names $(pkg-config --cflags --libs lfoundation)
    ./names
    ldd ./names | grep -F liblfoundation.so.1

    apt-get purge -y -qq liblfoundation1 liblfoundation-dev loginhelper >purge.log 2>&1 || { cat purge.log; return 1; }
    files "$1" | diff <(echo "$before") - || { echo "left behind, or taken away, by a purge"; return 1; }
    echo "purged, and nothing is left"
}

# package_run ROOT FOLDER: in namespaces of its own, whose mounts and processes end with it.
package_run() {
    unshare --mount --pid --fork --kill-child bash -c 'cd "$1" && mount -t proc proc proc && mount -t tmpfs tmpfs tmp &&
        chroot . /usr/bin/env -i LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive PATH="/usr/sbin:/usr/bin:/sbin:/bin" \
            /bin/bash -c "$3; package_commands \"\$1\"" bash "$2"' bash "$1" "$2" "$(declare -f package_commands package_helper)"
}

# package_twice FOLDER: in package/ of the build folder, and in that one.
package_twice() {
    local package
    "$root/scripts/package" && "$root/scripts/package" "$1" >"$1.log" || return
    for package in "$build_root"/package/*.deb; do
        cmp "$package" "$1/${package##*/}" || return
    done
    say "two builds in two folders give the same bytes"
}

# package_root FOLDER: a clean system in which programs can be built, and what is done in it.
package_root() {
    local obstacle suite
    # shellcheck source=/dev/null
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    local bare_suites=("$suite")
    obstacle=$(bare_obstacle "$1")
    has_command mmdebstrap || obstacle=${obstacle:-"mmdebstrap is not installed"}
    if [ -n "$obstacle" ]; then
        skip "package, its clean root" "$obstacle"
        return 0
    fi
    mmdebstrap --quiet --variant=minbase --include=g++,cmake,ninja-build,pkg-config,libexpat1-dev \
        "$suite" "$1/root" "$(bare_source)" || return
    cp -L /etc/resolv.conf "$1/root/etc/resolv.conf"
    mkdir "$1/root/try" && cp "$build_root"/package/*.deb "$1/root/try" &&
        cp -R "$root/tests/consumer" "$1/root/try/consumer" && package_run "$1/root" /try
}

check_package() {
    local scratch status=0
    scratch=$(mktemp -d "${BARE_DIR:-/var/tmp}/package.XXXXXX") || return
    # shellcheck disable=SC2064
    trap "rm -rf --one-file-system '$scratch'" EXIT
    trap 'exit 130' INT TERM
    package_twice "$scratch/second" && package_root "$scratch" || status=1
    rm -rf --one-file-system "$scratch"
    return "$status"
}
