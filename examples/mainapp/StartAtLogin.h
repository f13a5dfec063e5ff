// The switch "start at login" of an application: what is behind the check box in its settings.
//
// Two things make it: the helper in the application's bundle is registered, so that the session starts it at login;
// and the helper's setting is on, so that it then launches the application.
//
// Thread-safety: none; not on the main thread, which must be free to deliver the helper's answers.
#pragma once

#include <string>

class StartAtLogin {
public:
    // To be called when the application has started. Where the helper is registered, one of this bundle shall serve
    // from now on: not the one that has launched the application and is idle since, nor one of another version. Tells
    // what it did; empty when there was nothing to do.
    std::string Resume();

    // Turns the switch. What is wrong, for the user; empty when it is as asked for.
    std::string Set(bool bOn);

    // What is so, whatever this application believes: others may change both things at any time.
    bool IsOn();
    std::string Describe();
};
