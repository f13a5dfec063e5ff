#!/bin/sh
# Logs a user in twenty-one times and counts what is launched. Runs as root in a booted machine that is thrown away.
# usage: logins.sh USER
set -u
user=$1
id=$(id -u "$user")
. /check/identity.sh
application="/home/$user/$app_name.app"
helper=/usr/libexec/$helper_name.app/Contents/MacOS/$helper_name
failures=0

as_user() { runuser -u "$user" -- env -i PATH=/usr/bin:/bin HOME="/home/$user" XDG_RUNTIME_DIR="/run/user/$id" "$@"; }
manager() { as_user systemctl --user "$@"; }
fail() { echo "login $login: $*"; failures=$((failures + 1)); }
applications() { pgrep -c -f "^$application/Contents/MacOS/"; }
launches() {
    journalctl --sync
    { journalctl -o cat -t "$helper_name"; cat /check/third; } 2>/dev/null | grep -c "^$helper_name: launching "
}
# until SECONDS COMMAND...
until_true() {
    tries=$(($1 * 50)); shift
    while ! "$@"; do
        tries=$((tries - 1)); [ "$tries" -gt 0 ] || return 1
        sleep 0.02
    done
}
runs() { [ "$(applications)" -ge 1 ]; }
is_gone() { [ "$(applications)" -eq 0 ]; }

cp -R "/check/$app_name.app" "/home/$user/"
mkdir -p "/home/$user/.config/systemd/user"
printf '[Unit]\nBindsTo=graphical-session.target\nWants=xdg-desktop-autostart.target\n' \
    >"/home/$user/.config/systemd/user/session.target"
chown -R "$user:" "/home/$user"
loginctl enable-linger "$user"
login=0
until_true 20 test -S "/run/user/$id/systemd/private" || fail "no service manager"

# What the README says under "Switching it on".
manager enable "$helper_identifier.service" 2>/dev/null && manager start "$helper_identifier.socket" || fail "the units cannot be switched on"
as_user "${helper_name}ctl" enable "$application" || fail "the setting cannot be switched on"
as_user "${helper_name}ctl" doctor | grep -q '^next login: launches the application' || fail "the doctor foretells no launch"
[ "$(applications)" -eq 0 ] || fail "a question launched the application"

# The first ten as installed; then the entry without its mark, so that the service manager starts it too. Each time
# a third helper comes from a session that reads entries by itself.
for login in $(seq 20); do
    [ "$login" -ne 11 ] || { sed -i /X-systemd-skip/d /etc/xdg/autostart/$helper_identifier.desktop; manager daemon-reload; }
    before=$(launches)
    [ $((login % 2)) -eq 0 ] || as_user "$helper" >/dev/null 2>>/check/third &
    manager start session.target
    [ $((login % 2)) -ne 0 ] || as_user "$helper" >/dev/null 2>>/check/third &
    until_true 10 runs || fail "nothing runs"
    [ "$login" -lt 11 ] || manager is-active --quiet app-$(systemd-escape "$helper_identifier")@autostart.service || fail "the entry started no helper"
    sleep 0.5 # nothing tells that a further launch will not come
    [ "$(applications)" -eq 1 ] || fail "$(applications) applications run"
    [ "$(launches)" -le $((before + 1)) ] || fail "$(($(launches) - before)) launches"
    for process in $(pgrep -f "^$application/Contents/MacOS/"); do
        grep -qF "/app-$(systemd-escape "$app_name")-" "/proc/$process/cgroup" || fail "no scope of its own"
        ! readlink "/proc/$process/fd/1" "/proc/$process/fd/2" | grep -qv '^/' || fail "streams of others"
    done
    as_user "${helper_name}ctl" query | grep -qx 'launch at login: on' || fail "the service is not reached"
    start=$(date +%s)
    manager stop session.target graphical-session.target
    pkill -TERM -f "^$helper\$"
    [ $(($(date +%s) - start)) -le 6 ] || fail "the end of the session took longer than its limit"
    [ "$(applications)" -eq 1 ] || fail "the application did not outlive the session"
    pkill -TERM -f "^$application/Contents/MacOS/"
    until_true 5 is_gone || fail "the application does not end"
done

# Nothing for all users any more: the application turns its own switch, and the service manager makes a service of the
# entry.
login="of the user's own entry"
service=app-$(systemd-escape "$helper_identifier")@autostart.service
manager disable --now "$helper_identifier.service" "$helper_identifier.socket" 2>/dev/null
rm "/etc/xdg/autostart/$helper_identifier.desktop"
printf 'on\n' | as_user "$application/Contents/MacOS/$app_name" >/check/switch 2>&1 &
until_true 10 grep -q 'start at login is on' /check/switch || fail "$(cat /check/switch)"
pkill -TERM -f "^$application/"
until_true 5 is_gone || fail "the application does not end"
manager daemon-reload # as a login does
manager start session.target
until_true 10 runs || fail "nothing runs"
[ "$(manager show -P ExecMainStartTimestampMonotonic "$service")" -gt 0 ] || fail "no service of the entry"
until_true 10 as_user "${helper_name}ctl" test >/dev/null 2>&1 || fail "no helper serves"
manager stop session.target graphical-session.target
[ "$(applications)" -eq 1 ] || fail "the application did not outlive the session"
as_user "${helper_name}ctl" query | grep -qx 'launch at login: on' || fail "its helper did not outlive the session"
as_user "${helper_name}ctl" unregister | grep -qx 'registered: no' || fail "it cannot be taken off the login"
echo "session: 21 logins, $failures failures"
[ "$failures" -eq 0 ]
