#include <port/DataCopy.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <unistd.h>

#include "host/SystemCalls.h"

namespace port {
namespace {

constexpr std::size_t kBuffer = std::size_t{32} << 10;
constexpr off_t kKernelChunk = off_t{1} << 30;
constexpr off_t kSmallFile = 4096; // below it a read and a write beat the kernel's own copy
constexpr off_t kBlock = 512;      // the unit of st_blocks

} // namespace

DataCopy::DataCopy(int from, const struct stat& source, int to)
    : from_(from), to_(to), sparse_(source.st_blocks < source.st_size / kBlock),
      inKernel_(source.st_size >= kSmallFile) {}

off_t DataCopy::move(off_t size) {
    const off_t begin = done_;
    const off_t end = begin + size;
    for (bool more = true; more && done_ < end;) {
        const Extent data = sparse_ ? nextData(end) : Extent{done_, end};
        const off_t moved = moveData(data.stop - data.start);
        if (moved < 0)
            return -1;
        done_ = data.start + moved;
        more = moved != 0 && done_ == data.stop;
    }
    return done_ - begin;
}

// What comes before `end`, with both files there; an empty piece behind the last data. Where the file system does
// not tell its holes all is data.
DataCopy::Extent DataCopy::nextData(off_t end) const {
    Extent data{::lseek(from_, done_, SEEK_DATA), end};
    if (data.start < 0) {
        struct stat now;
        const bool onlyHole = errno == ENXIO && ::fstat(from_, &now) == 0;
        data.start = onlyHole ? std::clamp(now.st_size, done_, end) : done_;
        data.stop = onlyHole ? data.start : end;
    } else if (data.start >= end) {
        data.start = end;
    } else if (const off_t hole = ::lseek(from_, data.start, SEEK_HOLE); hole >= 0) {
        data.stop = std::min(hole, end);
    }
    ::lseek(from_, data.start, SEEK_SET);
    ::lseek(to_, data.start, SEEK_SET);
    return data;
}

// What the kernel takes for empty is read too: so are the files whose content is made up while it is read.
off_t DataCopy::moveData(off_t size) {
    off_t left = size;
    while (inKernel_ && left > 0) {
        const ssize_t moved =
            sys::copyRange(from_, to_, static_cast<std::size_t>(std::min(left, kKernelChunk)));
        inKernel_ = moved >= 0;
        if (moved <= 0)
            break;
        left -= moved;
    }
    const off_t rest = moveByHand(left);
    return rest < 0 ? -1 : size - left + rest;
}

off_t DataCopy::moveByHand(off_t size) const {
    __attribute__((uninitialized)) std::array<char, kBuffer> buffer; // most files fill little of it
    off_t moved = 0;
    while (moved < size) {
        const off_t wanted = std::min<off_t>(size - moved, kBuffer);
        const ssize_t got = sys::read(from_, buffer.data(), static_cast<std::size_t>(wanted));
        if (got < 0 || !sys::writeAll(to_, buffer.data(), static_cast<std::size_t>(got)))
            return -1;
        if (got == 0)
            break;
        moved += got;
    }
    return moved;
}

bool DataCopy::finish() const {
    return !sparse_ || ::ftruncate(to_, done_) == 0;
}

} // namespace port
