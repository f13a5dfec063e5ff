#include "xpc/XPCBundledService.h"
#include "xpc/XPCListener.h"

#include <cstdio>
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <sysexits.h>
#include <xpc/xpc.h>

void xpc_main(xpc_connection_handler_t handler) {
    const auto listener = port::XPCListener::create(port::xpcOwnEndpoint(), dispatch_get_main_queue());
    if (!listener) {
        std::perror("xpc_main");
        std::exit(EX_UNAVAILABLE);
    }
    listener->setHandler([handler](xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_CONNECTION)
            handler(static_cast<xpc_connection_t>(event));
    });
    // The handler first: peers that wait in the backlog come as soon as the loop runs.
    listener->resume();
    dispatch_main();
}
