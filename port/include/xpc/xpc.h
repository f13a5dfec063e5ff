// XPC: typed messages between processes over named services.
//
// Thread-safety: every function may be called from any thread. One connection's events arrive one at a
// time, on that connection's own serial queue (off the main thread), replies on the queue that was named
// when the message was sent. A dictionary under construction belongs to one thread; a received one is
// read-only.
//
// Ownership: `create` and `copy` functions return a reference that the caller releases. Events and replies
// belong to the runtime and live for the duration of the handler unless retained.
//
// Failure: a function that has no memory for what the program wants of it throws std::bad_alloc; nothing else is
// thrown. Setters on a poisoned or sealed dictionary do nothing; getters answer a
// neutral value for an absent key or another type. Sending has no failure result: a peer that is gone shows
// up later as an error event.
//
// Memory: what a peer's connection or message has no memory for costs that connection, which is closed as if the
// peer had gone. The same holds for a std::bad_alloc that leaves the handler of a peer's message, or of a new
// peer. One that leaves any other handler, and a reply handler that cannot be put in line, ends the process with
// "out of memory" on standard error and status 71.
//
// Descriptors: where none is left a listener is null with EMFILE or ENFILE, a client's connection is "invalid" and
// tries again no more, and a setter that needs one poisons its dictionary.
#pragma once

#include <cstddef>
#include <cstdint>

#include <dispatch/dispatch.h>
#include <port/Block.h>
#include <sys/types.h>

using xpc_object_t = void*;
struct _xpc_error_s;
struct _xpc_type_s;
using xpc_type_t = const _xpc_type_s*;
struct _xpc_connection_s;
using xpc_connection_t = _xpc_connection_s*;
using xpc_handler_t = port::Block<xpc_object_t>;
using xpc_connection_handler_t = void (*)(xpc_connection_t);

#pragma GCC visibility push(default)

extern const xpc_type_t XPC_TYPE_CONNECTION;
extern const xpc_type_t XPC_TYPE_DICTIONARY;
extern const xpc_type_t XPC_TYPE_ERROR;
extern const xpc_type_t XPC_TYPE_BOOL;
extern const xpc_type_t XPC_TYPE_INT64;
extern const xpc_type_t XPC_TYPE_UINT64;
extern const xpc_type_t XPC_TYPE_DOUBLE;
extern const xpc_type_t XPC_TYPE_DATE;
extern const xpc_type_t XPC_TYPE_DATA;
extern const xpc_type_t XPC_TYPE_UUID;
extern const xpc_type_t XPC_TYPE_STRING;
extern const xpc_type_t XPC_TYPE_FD;

// The three error objects, told apart by identity; retaining and releasing them is harmless.
extern _xpc_error_s _xpc_error_connection_invalid;
extern _xpc_error_s _xpc_error_connection_interrupted;
extern _xpc_error_s _xpc_error_termination_imminent;
#define XPC_ERROR_CONNECTION_INVALID (static_cast<xpc_object_t>(&_xpc_error_connection_invalid))
#define XPC_ERROR_CONNECTION_INTERRUPTED (static_cast<xpc_object_t>(&_xpc_error_connection_interrupted))
#define XPC_ERROR_TERMINATION_IMMINENT (static_cast<xpc_object_t>(&_xpc_error_termination_imminent))

constexpr std::uint64_t XPC_CONNECTION_MACH_SERVICE_LISTENER = 1;
constexpr std::uint64_t XPC_CONNECTION_MACH_SERVICE_PRIVILEGED = 2;

xpc_object_t xpc_retain(xpc_object_t object);
void xpc_release(xpc_object_t object);
xpc_type_t xpc_get_type(xpc_object_t object);

// Dictionaries. Keys are bytes, compared exactly. Setters copy text, bytes and the 16 bytes of a UUID and
// duplicate a descriptor; the same key replaces. A setter that cannot store (a limit, no memory, no
// descriptor left) poisons the dictionary: it is never sent half-built, and a reply that cannot be sent ends the
// connection of who waits for it. A bad descriptor stores nothing. A dictionary that was sent is sealed.
xpc_object_t xpc_dictionary_create(const char* const* keys, const xpc_object_t* values, std::size_t count);
xpc_object_t xpc_dictionary_create_reply(xpc_object_t original);
xpc_connection_t xpc_dictionary_get_remote_connection(xpc_object_t dictionary);

// Presence and type of the value under a key: null when the key is absent. The object lives as long as the
// dictionary and is not released.
xpc_object_t xpc_dictionary_get_value(xpc_object_t dictionary, const char* key);

void xpc_dictionary_set_bool(xpc_object_t dictionary, const char* key, bool value);
void xpc_dictionary_set_int64(xpc_object_t dictionary, const char* key, std::int64_t value);
void xpc_dictionary_set_uint64(xpc_object_t dictionary, const char* key, std::uint64_t value);
void xpc_dictionary_set_double(xpc_object_t dictionary, const char* key, double value);
void xpc_dictionary_set_date(xpc_object_t dictionary, const char* key, std::int64_t value);
void xpc_dictionary_set_data(xpc_object_t dictionary, const char* key, const void* bytes, std::size_t length);
void xpc_dictionary_set_uuid(xpc_object_t dictionary, const char* key, const std::uint8_t* uuid);
void xpc_dictionary_set_string(xpc_object_t dictionary, const char* key, const char* string);
void xpc_dictionary_set_fd(xpc_object_t dictionary, const char* key, int fd);

bool xpc_dictionary_get_bool(xpc_object_t dictionary, const char* key);
std::int64_t xpc_dictionary_get_int64(xpc_object_t dictionary, const char* key);
std::uint64_t xpc_dictionary_get_uint64(xpc_object_t dictionary, const char* key);
double xpc_dictionary_get_double(xpc_object_t dictionary, const char* key);
std::int64_t xpc_dictionary_get_date(xpc_object_t dictionary, const char* key);
const void* xpc_dictionary_get_data(xpc_object_t dictionary, const char* key, std::size_t* length);
const std::uint8_t* xpc_dictionary_get_uuid(xpc_object_t dictionary, const char* key);
const char* xpc_dictionary_get_string(xpc_object_t dictionary, const char* key);
// A fresh descriptor, close-on-exec, that the caller owns; -1 for a mismatch.
int xpc_dictionary_dup_fd(xpc_object_t dictionary, const char* key);

// Connections are created suspended; the handler is set before the first resume. A null queue means the
// connection's own serial queue. A listener that cannot be created is null, with errno.
xpc_connection_t xpc_connection_create(const char* name, dispatch_queue_t queue);
xpc_connection_t xpc_connection_create_mach_service(const char* name, dispatch_queue_t queue,
                                                    std::uint64_t flags);
void xpc_connection_set_event_handler(xpc_connection_t connection, xpc_handler_t handler);
void xpc_connection_resume(xpc_connection_t connection);
void xpc_connection_suspend(xpc_connection_t connection);
// Asynchronous: unsent messages are dropped, waiting reply handlers get "invalid", the event handler gets a
// last "invalid" and nothing after it. May be called from the connection's own handler.
void xpc_connection_cancel(xpc_connection_t connection);
// The peer's process id, folded into 1..99999; 0 when it lives in another pid namespace.
pid_t xpc_connection_get_pid(xpc_connection_t connection);
// Queued or written at once by the caller's thread; never blocks, never raises SIGPIPE.
void xpc_connection_send_message(xpc_connection_t connection, xpc_object_t message);
// The handler is called exactly once, on `queue` (null: the main queue): with the reply, with "interrupted"
// when the peer goes, with "invalid" when the connection is cancelled or cannot be made.
void xpc_connection_send_message_with_reply(xpc_connection_t connection, xpc_object_t message,
                                            dispatch_queue_t queue, xpc_handler_t handler);
// The block runs exactly once on the connection's queue, after everything sent before it was handed over;
// on a dead connection too.
void xpc_connection_send_barrier(xpc_connection_t connection, dispatch_block_t barrier);

// Serves the bundled service of this process; never returns.
[[noreturn]] void xpc_main(xpc_connection_handler_t handler);

#pragma GCC visibility pop
