// A bundled service that answers its peer and ends with it; with the name of a service, the main application
// that calls it: status 0 when there is an answer.
#include <cstdlib>
#include <dispatch/dispatch.h>
#include <xpc/xpc.h>

int main(int argc, char** argv) {
    if (argc < 2)
        xpc_main([](xpc_connection_t peer) {
            xpc_retain(peer);
            xpc_connection_set_event_handler(peer, [peer](xpc_object_t event) {
                const xpc_object_t reply = xpc_dictionary_create_reply(event);
                if (reply == nullptr)
                    std::exit(0);
                xpc_connection_send_message(peer, reply);
                xpc_release(reply);
            });
            xpc_connection_resume(peer);
        });
    const xpc_connection_t connection = xpc_connection_create(argv[1], nullptr);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
    xpc_connection_send_message_with_reply(connection, message, nullptr, [](xpc_object_t reply) {
        std::exit(xpc_get_type(reply) == XPC_TYPE_ERROR);
    });
    dispatch_main();
}
