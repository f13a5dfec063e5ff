// A service in a process of its own: answers every message with its text and how many came before it on the
// same connection, and does what the command in the message says. With one argument it serves that name, with
// none it is a bundled service, and with "--call NAME" it is the main application that calls one: status 0 when
// another process answers.
#include <cstdlib>
#include <cstring>
#include <dispatch/dispatch.h>
#include <memory>
#include <unistd.h>
#include <xpc/xpc.h>

namespace {

void answer(xpc_object_t message, long before) {
    const xpc_object_t reply = xpc_dictionary_create_reply(message);
    if (reply == nullptr)
        return;
    if (const char* const text = xpc_dictionary_get_string(message, "text"))
        xpc_dictionary_set_string(reply, "text", text);
    xpc_dictionary_set_int64(reply, "before", before);
    xpc_dictionary_set_int64(reply, "pid", getpid());
    xpc_connection_send_message(xpc_dictionary_get_remote_connection(message), reply);
    xpc_release(reply);
}

void handle(xpc_connection_t peer, xpc_object_t event, long& count) {
    if (xpc_get_type(event) == XPC_TYPE_ERROR) {
        xpc_connection_cancel(peer);
        xpc_release(peer);
        return;
    }
    const char* const command = xpc_dictionary_get_string(event, "command");
    if (command != nullptr && std::strcmp(command, "exit") == 0)
        std::exit(0);
    if (command != nullptr && std::strcmp(command, "crash") == 0)
        std::_Exit(1);
    if (command == nullptr || std::strcmp(command, "ignore") != 0)
        answer(event, count);
    ++count;
}

void accept(xpc_connection_t peer) {
    xpc_retain(peer);
    auto count = std::make_shared<long>(0);
    xpc_connection_set_event_handler(peer,
                                     [peer, count](xpc_object_t event) { handle(peer, event, *count); });
    xpc_connection_resume(peer);
}

[[noreturn]] void call(const char* name) {
    const xpc_connection_t connection = xpc_connection_create(name, nullptr);
    xpc_connection_set_event_handler(connection, [](xpc_object_t) {});
    xpc_connection_resume(connection);
    const xpc_object_t message = xpc_dictionary_create(nullptr, nullptr, 0);
    xpc_connection_send_message_with_reply(connection, message, nullptr, [](xpc_object_t reply) {
        const std::int64_t pid = xpc_dictionary_get_int64(reply, "pid");
        std::exit(pid != 0 && pid != getpid() ? 0 : 1);
    });
    dispatch_main();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2)
        xpc_main(accept);
    if (argc == 3)
        call(argv[2]);
    const xpc_connection_t listener = xpc_connection_create_mach_service(
        argv[1], dispatch_get_main_queue(), XPC_CONNECTION_MACH_SERVICE_LISTENER);
    if (listener == nullptr)
        return EXIT_FAILURE;
    xpc_connection_set_event_handler(listener, [](xpc_object_t event) {
        if (xpc_get_type(event) == XPC_TYPE_CONNECTION)
            accept(static_cast<xpc_connection_t>(event));
    });
    xpc_connection_resume(listener);
    dispatch_main();
}
