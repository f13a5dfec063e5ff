// The other processes of the login item tests: the application, and the helper in its bundle.
// servicemanagement_host {on|off|ask} IDENTIFIER: says what came of it, as one line.
// servicemanagement_host: a helper; it serves when it was switched on, and is idle after a login.
#include <ServiceManagement/ServiceManagement.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dispatch/dispatch.h>
#include <port/login_helper.h>
#include <unistd.h>
#include <xpc/xpc.h>

namespace {

int serve() {
    char name[256];
    CFStringGetCString(CFBundleGetIdentifier(CFBundleGetMainBundle()), name, sizeof name,
                       kCFStringEncodingUTF8);
    if (!port_started_by_enabling())
        return pause();
    xpc_connection_t service = xpc_connection_create_mach_service(name, dispatch_get_main_queue(),
                                                                  XPC_CONNECTION_MACH_SERVICE_LISTENER);
    xpc_connection_set_event_handler(service, [](xpc_object_t) {});
    xpc_connection_resume(service);
    dispatch_main();
}

} // namespace

int main(int argc, char* argv[]) {
    alarm(60);
    if (argc < 3)
        return serve();
    bool done = true;
    if (std::strcmp(argv[1], "ask") != 0) {
        const CFStringRef identifier =
            CFStringCreateWithCString(kCFAllocatorDefault, argv[2], kCFStringEncodingUTF8);
        done = SMLoginItemSetEnabled(identifier, std::strcmp(argv[1], "on") == 0);
        const int error = errno;
        if (identifier != nullptr)
            CFRelease(identifier);
        if (!done)
            std::printf("%s: ", std::strerror(error));
    }
    port_login_helper_t helper;
    port_login_helper(argv[2], &helper);
    std::printf("%s state %d, %s, process %d%s\n", done ? "done" : "refused", helper.entry.state,
                helper.serves ? "served" : "not served", helper.process, helper.obstacle);
}
