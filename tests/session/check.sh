#!/bin/sh
# Logins under a real service manager: installs the helper into a small Debian root, boots it in a container, and
# logs in twenty-one times there (logins.sh).
# usage: check.sh BUILD-DIR [ROOT]
# ROOT is a Debian root with systemd that is used, and changed; without it one is made, which takes a minute.
# Ends with status 77, and says why, where that cannot be done.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "$1" && pwd)
work=
machine=

skip() { echo "session: skipped: $*"; exit 77; }
clean_up() {
    [ -z "$machine" ] || kill "$machine" 2>/dev/null || true
    [ -z "$work" ] || rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

[ "$(id -u)" -eq 0 ] || skip "not root"
command -v systemd-nspawn >/dev/null || skip "systemd-nspawn is missing"
if [ $# -ge 2 ]; then
    root=$(cd "$2" && pwd)
else
    command -v mmdebstrap >/dev/null || skip "mmdebstrap is missing"
    work=$(mktemp -d)
    root=$work/root
    mmdebstrap --quiet --variant=minbase --include=systemd-sysv,libpam-systemd,dbus-user-session,procps bookworm "$root" \
        2>"$work/log" || skip "no root can be made: $(tail -n 1 "$work/log")"
fi

DESTDIR=$root cmake --install "$build" --prefix /usr >/dev/null
mkdir -p "$root/check"
. "$build/identity.sh"
cp -R "$here/logins.sh" "$build/identity.sh" "$build/examples/mainapp/$app_name.app" "$root/check/"
chroot "$root" useradd --create-home someone 2>/dev/null || true
cat >"$root/etc/systemd/system/check.service" <<'UNIT'
[Unit]
After=systemd-logind.service systemd-user-sessions.service
Wants=systemd-logind.service
[Service]
ExecStart=/bin/sh -c 'sh /check/logins.sh someone >/check/output 2>&1; echo $? >/check/status; systemctl poweroff --force'
UNIT
rm -f "$root/check/status" "$root/check/output"
systemd-nspawn --quiet --register=no --keep-unit --directory="$root" --boot systemd.unit=check.service \
    </dev/null >"$root/check/console" 2>&1 &
machine=$!
for _ in $(seq 1200); do
    kill -0 "$machine" 2>/dev/null || break
    sleep 0.2
done
cat "$root/check/output" 2>/dev/null || skip "no container can be booted: $(tail -n 1 "$root/check/console")"
exit "$(cat "$root/check/status" 2>/dev/null || echo 1)"
