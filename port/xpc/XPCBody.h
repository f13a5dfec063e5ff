// Memory for the body of a frame. Large blocks that are given back are kept, within a limit, for the next
// ones: fresh memory costs a page fault for every page.
//
// Thread-safety: blocks may be made and given back on any thread.
#pragma once

#include <cstddef>
#include <memory>

namespace port {

struct XPCBodyReturn {
    std::size_t capacity = 0;
    void operator()(std::byte* bytes) const;
};
// Owns a block; `get_deleter().capacity` is its size.
using XPCBody = std::unique_ptr<std::byte[], XPCBodyReturn>;

// A block of at least `bytes` bytes, whatever they hold; null without memory.
XPCBody makeXPCBody(std::size_t bytes);

} // namespace port
