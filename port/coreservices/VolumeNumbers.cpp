#include "coreservices/VolumeNumbers.h"

#include <algorithm>

namespace port {

VolumeNumbers& VolumeNumbers::shared() {
    static VolumeNumbers& numbers = *new VolumeNumbers;
    return numbers;
}

SInt16 VolumeNumbers::numberOf(const std::string& mountPoint) {
    const std::lock_guard lock(mutex_);
    auto place = std::find(mountPoints_.begin(), mountPoints_.end(), mountPoint);
    if (place == mountPoints_.end() && mountPoints_.size() < kMaxVolumes) {
        place = mountPoints_.insert(place, mountPoint);
    } else if (place == mountPoints_.end()) {
        place = mountPoints_.begin() + 1 + static_cast<std::ptrdiff_t>(reused_++ % (kMaxVolumes - 1));
        *place = mountPoint;
    }
    return static_cast<SInt16>(kRootVolume - (place - mountPoints_.begin()));
}

bool VolumeNumbers::find(SInt16 number, std::string& mountPoint) {
    const std::lock_guard lock(mutex_);
    const int index = kRootVolume - number;
    if (index < 0 || index >= static_cast<int>(mountPoints_.size()))
        return false;
    mountPoint = mountPoints_[static_cast<std::size_t>(index)];
    return true;
}

} // namespace port
