#!/bin/sh
# Another vendor's helper, beside this build's: configures the names of an application "Acme Notes", builds helper,
# control program and application on the library as this build installs it, and runs the demo with them. Then both
# helpers are installed into one prefix, and begin with one login: each launches its own application.
# usage: check.sh BUILD-DIR SOURCE-DIR [CMAKE-OPTION...]
set -eu
build=$1
top=$2
shift 2
work=$(mktemp -d)
[ ! -e "$build/install_manifest.txt" ] || cp "$build/install_manifest.txt" "$work/manifest"
clean_up() {
    [ ! -e "$work/manifest" ] || cp "$work/manifest" "$build/install_manifest.txt"
    pkill -KILL -f "^$work/" || true
    rm -rf "$work"
}
trap clean_up EXIT
trap 'exit 130' INT TERM

quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }; }
fail() { echo "$*"; exit 1; }

quietly cmake --install "$build" --prefix "$work/prefix" --strip
other=$work/other/release
LFOUNDATION_BUILD_DIR=$work/other quietly "$top/scripts/demo" -DLFOUNDATION_LIBRARY=OFF \
    -DCMAKE_PREFIX_PATH="$work/prefix" "$@" -DLFOUNDATION_APP_NAME="Acme Notes" \
    -DLFOUNDATION_APP_IDENTIFIER=com.acme.notes -DLFOUNDATION_APP_VERSION=3.1 -DLFOUNDATION_TEAM=AB12CD34EF \
    -DLFOUNDATION_ORGANISATION=com.acme -DLFOUNDATION_HELPER_NAME=acmehelper
grep -q 'acmehelper: launched .*/Acme Notes.app$' "$work/log" || fail "the demo launched another application"
grep -q 'version 3.2 is not 3.1$' "$work/log" || fail "the demo looked for another version"

# The README's recording is what the demo says, by these names. What two programs say at a time may come in any order.
awk '/^```text$/ && !seen { seen = on = 1; next } /^```$/ { on = 0 } on' "$top/README.md" | LC_ALL=C sort >"$work/recording"
sed -n '/^ 1\. /,$p' "$work/log" | sed -e 's|/[^ "]*/login\.[^/]*|…|g' -e 's/AB12CD34EF[A-Za-z0-9.]*/Q4KX2M9T7W.com.brelvanic.loginhelper.zubeqfree214/' \
    -e 's/acmehelper/loginhelper/g; s/Acme Notes/Zubeq Free/g; s/ 3\.1/ 2.14/g; s/ 3\.2/ 2.15/g' | LC_ALL=C sort |
    diff "$work/recording" - || fail "README.md shows another demo"

# Nothing that is built for the one knows a name of the other, and no file of the two has the same place.
. "$build/identity.sh"
if grep -rlF -e "$app_name" -e "$helper_identifier" "$other"; then fail "the names of another helper"; fi
DESTDIR=$work/two quietly cmake --install "$build" --prefix /usr
sort "$build/install_manifest.txt" >"$work/first"
DESTDIR=$work/two quietly cmake --install "$other" --prefix /usr
sort "$other/install_manifest.txt" >"$work/second"
both=$(comm -12 "$work/first" "$work/second")
[ -z "$both" ] || fail "both install $both"

# One login of a user who has both: the two begin at once, and wait for nothing of each other.
export HOME="$work/home" XDG_CONFIG_HOME="$work/home" XDG_RUNTIME_DIR="$work/home"
mkdir -m 700 "$HOME"
exec 9</tmp && flock 9 # as the suite's logins take turns
helpers=
log_in() { # log_in BUILD: in a shell that has its names
    cp -R "$1/examples/mainapp/$app_name.app" "$work/"
    cat >"$HOME/$helper_identifier.plist" <<LIST
<plist version="1.0"><dict><key>LOGINHELPER_LAUNCH_AT_LOGIN</key><true/>
<key>LOGINHELPER_MAIN_APP_PATH</key><string>$work/$app_name.app</string></dict></plist>
LIST
    "$1/app/$helper_name.app/Contents/MacOS/$helper_name" 2>>"$work/said" &
    helpers="$helpers $!"
}
log_in "$build"
. "$other/identity.sh"
log_in "$other"
tries=500
until [ "$(grep -c ': launched\|: not' "$work/said")" -ge 2 ] || [ "$tries" -eq 0 ]; do
    tries=$((tries - 1))
    sleep 0.02
done
# shellcheck disable=SC2086
kill -TERM $helpers
[ "$(grep -c ': launched ' "$work/said")" -eq 2 ] || { cat "$work/said"; fail "two launches were expected"; }
