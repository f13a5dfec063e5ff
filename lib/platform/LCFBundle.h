// An owned bundle, asked for its version.
//
// Thread-safety: as a plain value.
#pragma once

#include "platform/LCFRef.h"

#pragma GCC visibility push(default)

class LCFBundle {
public:
    // Takes over a reference that the caller owns; null for none.
    explicit LCFBundle(CFBundleRef pBundle) : pHeld(pBundle) {}

    // Null when none is held. The wrapper keeps owning it.
    CFBundleRef Get() const { return pHeld.Get(); }
    explicit operator bool() const { return static_cast<bool>(pHeld); }

    // The numbers before and after the first dot of the bundle's version, of which a leading word that begins
    // with "V" is skipped: "2.14.7" and "V 2.14" give 2 and 14, "12" gives 12 and 0. False when there is no
    // bundle, no version text or an empty one: both numbers are then unchanged. Reads the bundle's property
    // list at the first call.
    bool GetVersionNumber(int& nMajor, int& nMinor) const;

private:
    LCFRef<CFBundleRef> pHeld;
};

#pragma GCC visibility pop
