// The data of one file on their way into another one.
//
// Thread-safety: none. It blocks with both files.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#pragma GCC visibility push(default)

namespace port {

// The kernel copies where it can, what it cannot is read and written. A hole of the source stays one in the target.
class DataCopy {
public:
    // Two files at their starts, which stay open while this lives; `source` is the status of the first one. The
    // second one is empty.
    DataCopy(int from, const struct stat& source, int to);

    // Moves the next bytes. Returns how many: less than `size` only at the end of the source; -1 with errno when they
    // could not be read or written.
    off_t move(off_t size);

    // Behind the last move: a target that ends with a hole gets its length. False with errno.
    bool finish() const;

private:
    // A piece of the source that holds data.
    struct Extent {
        off_t start;
        off_t stop;
    };

    Extent nextData(off_t end) const;
    off_t moveData(off_t size);
    off_t moveByHand(off_t size) const;

    const int from_;
    const int to_;
    const bool sparse_;
    bool inKernel_;
    off_t done_ = 0;
};

} // namespace port

#pragma GCC visibility pop
