// Queues of blocks: the main queue, served by the main thread, and serial queues served by a small pool of
// worker threads.
//
// Thread-safety: every function may be called from any thread.
// A serial queue runs one block at a time, in order. Blocks must not throw: an exception that leaves a block
// ends the process, std::bad_alloc with "out of memory" on standard error and status 71. The functions throw nothing
// but that, and without descriptors they work slowly: the loops look for work every few milliseconds then.
#pragma once

#include <cstdint>
#include <port/Block.h>

struct dispatch_queue_s;
using dispatch_queue_t = dispatch_queue_s*;
using dispatch_block_t = port::Block<>;

#pragma GCC visibility push(default)

// The serial queue of the main thread, drained by `dispatch_main`, by the application's run loop and by
// `port_main_queue_drain`. Never released.
dispatch_queue_t dispatch_get_main_queue();

// A queue whose blocks may run at the same time on the workers. Both arguments are ignored. Never released.
dispatch_queue_t dispatch_get_global_queue(std::intptr_t priority, std::uintptr_t flags);

// A serial queue on the workers; `attributes` is null. The caller releases it.
dispatch_queue_t dispatch_queue_create(const char* label, void* attributes);
void dispatch_release(dispatch_queue_t queue);

// Appends the block and returns at once.
void dispatch_async(dispatch_queue_t queue, dispatch_block_t block);

// Balanced counts; a block that runs is not interrupted.
void dispatch_suspend(dispatch_queue_t queue);
void dispatch_resume(dispatch_queue_t queue);

// Gives the calling thread to the main queue for ever; the process ends by `exit`.
[[noreturn]] void dispatch_main();

#pragma GCC visibility pop
