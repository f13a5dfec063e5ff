// The names under which the library keeps what is its own.
//
// Thread-safety: any thread, once the program has set them.
#pragma once

struct LIdentity {
    const char* szName = "loginhelper";
    const char* szIdentifier = "com.brelvanic.loginhelper";
};

const LIdentity& LGetIdentity();
