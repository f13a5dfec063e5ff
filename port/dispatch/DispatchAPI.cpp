#include "dispatch/MainLoop.h"
#include "dispatch/Queue.h"

#include <dispatch/dispatch.h>
#include <port/main_queue.h>
#include <utility>

dispatch_queue_t dispatch_get_main_queue() {
    return &port::MainLoop::shared().queue();
}

dispatch_queue_t dispatch_get_global_queue(std::intptr_t /*priority*/, std::uintptr_t /*flags*/) {
    return &port::GlobalQueue::shared();
}

dispatch_queue_t dispatch_queue_create(const char* /*label*/, void* /*attributes*/) {
    return new port::PlainQueue;
}

void dispatch_release(dispatch_queue_t queue) {
    queue->release();
}

void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) {
    queue->append(port::Task(std::move(block)));
}

void dispatch_suspend(dispatch_queue_t queue) {
    queue->suspend();
}

void dispatch_resume(dispatch_queue_t queue) {
    queue->resume();
}

void dispatch_main() {
    port::MainLoop& loop = port::MainLoop::shared();
    loop.becomePermanent();
    for (;;)
        loop.runTurn();
}

bool port_main_queue_drain(int milliseconds) {
    return port::MainLoop::shared().runOnce(milliseconds);
}
