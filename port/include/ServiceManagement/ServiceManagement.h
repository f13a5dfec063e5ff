// ServiceManagement: helper applications that begin with the user's session, by the word of the application that
// they belong to.
//
// Thread-safety: any thread; the environment must not change meanwhile. Calls for one helper, of any of the user's
// processes, come one after the other.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#pragma GCC visibility push(default)

// Switches the helper application with that bundle identifier on or off as a login item of this user. It is the
// bundle of that identifier in Contents/Library/LoginItems of this process's main bundle; else the first of these: the
// one that the user's entry names; the one in the folder "../libexec" beside this program, where an installation has
// it; the one in /usr/local/libexec or /usr/libexec.
//
// On: the user's autostart entry, $XDG_CONFIG_HOME/autostart/IDENTIFIER.desktop (~/.config without that variable, or
// when it is relative), starts the helper with each session, whatever desktop that is; an entry that does so already
// stays as the user may have edited it. And the helper is started now, in a session of its own: when this returns
// it serves the service of its identifier. One of this login that runs another program than this bundle's is ended
// first, and where nobody serves every one is. Calling it again costs little, and brings back a helper that has
// ended.
//
// Off: the entry goes, and the helpers of this login end. What is installed for all users stays.
//
// An entry that the user has hidden or switched off is the user's: it stays as it is, "on" fails, "off" ends the
// helper.
//
// False with errno. EINVAL: this is no identifier (letters, digits, ".", "-" and "_", at most 200 of them).
// EWOULDBLOCK: another call lasts too long. "On" is refused, and `port_login_helper` of <port/login_helper.h> tells
// why, when there is no such bundle or it cannot be executed, when others may change it, when it is in a temporary
// folder (in one that is sticky, in $TMPDIR, in the runtime folder), which the entry would outlast, when no entry can
// name its path, and for root in a user's home folder. Both are refused for an entry that cannot be read: it may be
// one that is switched off. Up to here nothing has changed. Another value: what kept the entry from being written or
// removed whole, or, behind that, the helper from starting, from serving in time (ETIMEDOUT), or from ending.
//
// Blocks with the disk, up to 7 s for a helper that is to end, up to 5 s for one that is to serve, and up to 15 s for
// another call.
Boolean SMLoginItemSetEnabled(CFStringRef identifier, Boolean enabled);

#pragma GCC visibility pop
