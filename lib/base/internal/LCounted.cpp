#include "base/internal/LCounted.h"

void LCounted::release() const {
    if (dwHolders.fetch_sub(1, port::Order::AcquireRelease) == 1)
        delete this;
}
