// A service in a process of its own: answers a message with its text, but for "ignore", and ends at "exit".
// With one argument it serves that name and says "ready", with none it is a bundled service, and with
// "--call NAME" it is the main application that calls one: status 0 when there is an answer.
#include <cstdio>
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <string>
#include <xpc/xpc.h>

namespace {

void handle(xpc_connection_t peer, xpc_object_t event) {
    if (xpc_get_type(event) == XPC_TYPE_ERROR) {
        xpc_connection_cancel(peer);
        xpc_release(peer);
        return;
    }
    const std::string text = xpc_dictionary_get_string(event, "text");
    if (text == "exit")
        std::exit(0);
    const xpc_object_t reply = text == "ignore" ? nullptr : xpc_dictionary_create_reply(event);
    if (reply == nullptr)
        return;
    xpc_dictionary_set_string(reply, "text", text.c_str());
    xpc_connection_send_message(peer, reply);
    xpc_release(reply);
}

void accept(xpc_connection_t peer) {
    xpc_retain(peer);
    xpc_connection_set_event_handler(peer, [peer](xpc_object_t event) { handle(peer, event); });
    xpc_connection_resume(peer);
}

void call(const char* name) {
    const xpc_connection_t connection = xpc_connection_create(name, nullptr);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
    xpc_dictionary_set_string(message, "text", "hello");
    xpc_connection_send_message_with_reply(connection, message, nullptr, [](xpc_object_t reply) {
        std::exit(xpc_dictionary_get_string(reply, "text") != nullptr ? 0 : 1);
    });
}

void serve(const char* name) {
    const xpc_connection_t listener = xpc_connection_create_mach_service(
        name, dispatch_get_main_queue(), XPC_CONNECTION_MACH_SERVICE_LISTENER);
    xpc_connection_set_event_handler(listener, [](xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_CONNECTION)
            accept(static_cast<xpc_connection_t>(event));
    });
    xpc_connection_resume(listener);
    std::puts("ready");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        xpc_main(accept);
    argc == 3 ? call(argv[2]) : serve(argv[1]);
    dispatch_main();
}
