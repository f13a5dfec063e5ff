#!/bin/sh
# usage: check.sh BUNDLE LOGINHELPERCTL
# Turns the switch through a pipe, lets the session start the entry, brings the helper back that was killed, and meets
# the helper of an older copy; all in a private home.
set -eu
exec 9</tmp
flock 9 # one main application at a time on this machine, as in the tests
place=$(mktemp -d)
name=$(basename "$1" .app)
app="$place/$name.app/Contents/MacOS/$name"
helpers="$place/$name.app/Contents/Library/LoginItems"
export HOME="$place" XDG_CONFIG_HOME="$place/.config" XDG_RUNTIME_DIR="$place"
unset CFFIXED_USER_HOME LAUNCHED_AT_LOGIN PORT_SYSTEM_VERSION
clean_up() {
    pkill -KILL -f "^$place/" || true
    rm -rf "$place"
}
trap clean_up EXIT
trap 'exit 130' INT TERM
cp -R "$1" "$place/"
mkfifo "$place/commands"

# expect LINE...: what the application says next.
expect() {
    for line; do
        read -r said <&8
        # shellcheck disable=SC2254
        case $said in "$name: "$line) ;; *) echo "'$said' instead of '$line'"; exit 1 ;; esac
    done
}
helper_process() { pgrep -f "^$helpers/"; }
# The application, with its commands on descriptor 7 and what it says on 8.
start() {
    mkfifo "$place/said"
    "$app" <"$place/commands" >"$place/said" 2>/dev/null 9<&- &
    process=$!
    exec 7>"$place/commands" 8<"$place/said"
    rm "$place/said"
}
finish() {
    echo quit >&7
    exec 7>&- 8<&-
    wait "$process"
}

start
expect 'started by the user'
printf 'status\non\nstatus\n' >&7
expect 'start at login is off' 'start at login is on' 'start at login is on; the helper * serves'
kill -KILL "$(helper_process)"
echo status >&7
expect 'start at login is on; the helper * serves'
echo toggle >&7
expect 'start at login is off'
[ -z "$(helper_process)" ]
echo toggle >&7
expect 'start at login is on'
echo Hidden=true >>"$(echo "$place"/.config/autostart/*)"
printf 'status\non\n' >&7
expect 'start at login is off, and cannot be switched on: the user has *' 'the user has switched it off: *'
sed -i /Hidden/d "$place"/.config/autostart/*
finish
kill "$(helper_process)"

# The session starts the entry, which launches the application; that one wants a helper that serves, not an idle one.
sh -c "$(sed -n 's/^Exec=//p' "$place"/.config/autostart/*)" >"$place/log" 2>&1 9<&- &
until [ "$("$2" status --json | sed 's/.*"service"://')" = '"answers"}' ]; do sleep 0.01; done
grep -qx "$name: launched at login" "$place/log"
pkill -f "^$app" && pkill -f "^$helpers/"

# An older copy of the application has its helper still: it gives way.
cp -R "$place/$name.app" "$place/old.app"
env PORT_LOGIN_ITEM_ENABLED=1 "$(find "$place/old.app/Contents/Library" -type f -path '*/MacOS/*')" 2>/dev/null 9<&- &
until "$2" test >/dev/null 2>&1; do sleep 0.01; done
start
expect 'started by the user' "the helper * in $place/old.app/* gives way to * of this application"
echo off >&7
expect 'start at login is off'
[ -z "$(ls "$place/.config/autostart")" ]
finish
