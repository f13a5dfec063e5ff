#include "base/LSleep.h"

#include <cerrno>
#include <ctime>

void LSleepMilliseconds(unsigned int milliseconds) {
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}
