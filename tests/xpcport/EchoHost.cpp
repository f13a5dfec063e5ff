// A bundled service that answers a message with its text and ends at "exit"; with the name of a service, the main
// application that calls it: status 0 when there is an answer.
#include <cstdlib>
#include <cstring>
#include <dispatch/dispatch.h>
#include <xpc/xpc.h>

namespace {

void serve(xpc_connection_t peer) {
    xpc_retain(peer);
    xpc_connection_set_event_handler(peer, [peer](xpc_object_t event) {
        const char* const text = xpc_dictionary_get_string(event, "text");
        if (text != nullptr && std::strcmp(text, "exit") == 0)
            std::exit(0);
        if (const xpc_object_t reply = xpc_dictionary_create_reply(event)) {
            xpc_dictionary_set_string(reply, "text", text);
            xpc_connection_send_message(peer, reply);
            xpc_release(reply);
        }
    });
    xpc_connection_resume(peer);
}

[[noreturn]] void call(const char* name) {
    const xpc_connection_t connection = xpc_connection_create(name, nullptr);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
    xpc_dictionary_set_string(message, "text", "hello");
    xpc_connection_send_message_with_reply(connection, message, nullptr, [](xpc_object_t reply) {
        std::exit(xpc_dictionary_get_string(reply, "text") != nullptr ? 0 : 1);
    });
    dispatch_main();
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2)
        call(argv[1]);
    xpc_main(serve);
}
