// The reference numbers of volumes: each mount point that is met has one. What is mounted there is asked anew each
// time, since one volume may follow another.
//
// Thread-safety: all operations may be called on any thread. Nothing here asks the file system.
#pragma once

#include <CoreServices/CoreServices.h>

#include <mutex>
#include <string>
#include <vector>

namespace port {

constexpr SInt16 kRootVolume = -100;      // further volumes count down from it
constexpr std::size_t kMaxVolumes = 4096; // then the numbers but that of "/" are used again

class VolumeNumbers {
public:
    static VolumeNumbers& shared();

    SInt16 numberOf(const std::string& mountPoint);
    // False when there is no such number.
    bool find(SInt16 number, std::string& mountPoint);

private:
    std::mutex mutex_;
    std::vector<std::string> mountPoints_{"/"}; // that of the number kRootVolume - n at n
    std::size_t reused_ = 0;
};

} // namespace port
