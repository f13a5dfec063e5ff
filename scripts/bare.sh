# Sourced by scripts/check: the two commands of the README, and what it says about linking, in bare roots of Debian,
# once as root and once as a user with sudo. The roots come from the package source that this machine's own apt has.
# shellcheck shell=bash

read -ra bare_suites <<<"${BARE_SUITES:-bookworm trixie}"
bare_checkout="/srv/Zoë's häuser/first look"

# The package source of this machine, nothing when it has none of Debian's.
bare_source() {
    apt-get indextargets --format '$(ORIGIN) $(LABEL) $(REPO_URI)' 'Identifier: Packages' 2>/dev/null |
        sed -n 's/^Debian Debian //p' | head -n 1
}

# Says why no root can be made here; nothing when one can.
bare_obstacle() {
    [ "$(id -u)" -eq 0 ] || { echo "making a root needs root"; return; }
    has_command mmdebstrap || has_command debootstrap || { echo "neither mmdebstrap nor debootstrap is installed"; return; }
    unshare --mount --pid --fork mount -t tmpfs tmpfs /mnt 2>/dev/null || { echo "mounting is not allowed"; return; }
    local uri suite
    uri=$(bare_source)
    [ -n "$uri" ] || { echo "this machine's apt has no package source of Debian"; return; }
    for suite in "${bare_suites[@]}"; do
        /usr/lib/apt/apt-helper -o APT::Sandbox::User=root download-file "${uri%/}/dists/$suite/InRelease" "$1/InRelease" >/dev/null 2>&1 ||
            { echo "the package source does not answer for $suite"; return; }
    done
}

# bare_root SUITE FOLDER: a minimal system with sudo, a user and, where this machine has one, a compiler cache.
bare_root() {
    local extra=sudo
    [ -z "$bare_cache" ] || extra+=,ccache
    if has_command mmdebstrap; then
        mmdebstrap --quiet --variant=minbase --include="$extra" "$1" "$2" "$(bare_source)"
    else
        debootstrap --variant=minbase --include="$extra" "$1" "$2" "$(bare_source)" >/dev/null
    fi || return
    cp -L /etc/resolv.conf "$2/etc/resolv.conf"
    printf '127.0.0.1 localhost %s\n' "$(hostname)" >"$2/etc/hosts"
    chroot "$2" useradd --create-home --shell /bin/bash zoe &&
        echo 'zoe ALL=(ALL) NOPASSWD: ALL' >"$2/etc/sudoers.d/zoe"
}

# What is done in the root, by the user, in the checkout, with a look at the temporary folders before and after. Root
# installs where the README says, the user at home.
bare_commands() {
    local command linking="tests/consumer/readme_shell.sh ." result=0 status before
    [ "$(id -u)" -eq 0 ] || linking+=" $HOME/place"
    files() { find /tmp /var/tmp /dev/shm -mindepth 1 2>/dev/null | sort; }
    cd "$1" || return
    printf '%s, as %s, in %s\n' "$(sed -n 's/^PRETTY_NAME=//p' /etc/os-release)" "$(id -un)" "$PWD"
    before=$(files)
    for command in scripts/demo scripts/test "$linking"; do
        printf '\n$ %s\n' "$command"
        SECONDS=0 status=0
        $command || status=$? result=1
        printf '== %s ended with status %d after %d s\n' "$command" "$status" "$SECONDS"
    done
    [ "$(files)" = "$before" ] && return "$result"
    printf 'left behind in the temporary folders:\n'
    diff <(echo "$before") <(files)
    return 1
}

# Mounts what a system has to have, and goes into the root: a plain chroot, whose "/" is no mount point.
bare_enter() {
    local user=$2 node home=/root path=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin cache=()
    cd "$1" && mount -t proc proc proc && mount -t sysfs -o ro sysfs sys && mount -t tmpfs -o mode=755 tmpfs dev || return
    mkdir dev/pts dev/shm && mount -t devpts -o newinstance,ptmxmode=666 devpts dev/pts &&
        mount -t tmpfs -o mode=1777 tmpfs dev/shm || return
    for node in null zero full random urandom tty; do
        touch "dev/$node" && mount --bind "/dev/$node" "dev/$node" || return
    done
    ln -s pts/ptmx dev/ptmx
    ln -s /proc/self/fd dev/fd
    if [ -n "$4" ]; then
        mkdir -p var/cache/ccache && mount --bind "$4" var/cache/ccache || return
        cache=(CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
            CCACHE_DIR=/var/cache/ccache CCACHE_BASEDIR="$3")
    fi
    if [ "$user" != root ]; then
        home=/home/$user path=/usr/local/bin:/usr/bin:/bin
        cache+=(CCACHE_READONLY=1 CCACHE_TEMPDIR="$home/.ccache-tmp")
    fi
    exec chroot --userspec="$user:$user" . /usr/bin/env -i LANG=C.UTF-8 HOME="$home" USER="$user" LOGNAME="$user" PATH="$path" \
        "${cache[@]}" /bin/bash -c "$(declare -f bare_commands); bare_commands \"\$1\"" bash "$3"
}

# bare_run ROOT USER: in namespaces of its own, whose mounts and processes end with it.
bare_run() {
    local target=$1$bare_checkout
    mkdir -p "$target"
    (cd "$root" && sources_of_checkout | tar --null -T - -cf -) | tar -xf - -C "$target"
    chown -R --reference="$1/$([ "$2" = root ] && echo root || echo "home/$2")" "$target"
    unshare --mount --pid --fork --kill-child bash -c "$(declare -f bare_enter bare_commands); bare_enter \"\$@\"" \
        bash "$1" "$2" "$bare_checkout" "$bare_cache"
}

check_bare() {
    local scratch logs obstacle suite user failures=0
    scratch=$(mktemp -d "${BARE_DIR:-/var/tmp}/bare.XXXXXX") || return
    # shellcheck disable=SC2064
    trap "rm -rf --one-file-system '$scratch'" EXIT
    trap 'exit 130' INT TERM
    logs=${BARE_LOG_DIR:-$build_root/bare}
    mkdir -p "$logs" || return
    obstacle=$(bare_obstacle "$scratch")
    if [ -n "$obstacle" ]; then
        skip bare "$obstacle"
        return 0
    fi
    bare_cache=
    has_command ccache && bare_cache=$(ccache --get-config cache_dir)
    say "$(expected 3600), less with what a compiler cache has; the transcripts are in $logs"
    for suite in "${bare_suites[@]}"; do
        for user in root zoe; do
            say "bare: $suite, as $user"
            bare_root "$suite" "$scratch/$suite-$user" || { failures=1; continue; }
            bare_run "$scratch/$suite-$user" "$user" 2>&1 | tee "$logs/$suite-$user.log"
            [ "${PIPESTATUS[0]}" -eq 0 ] || failures=1
            rm -rf --one-file-system "${scratch:?}/$suite-$user"
        done
    done
    return "$failures"
}
