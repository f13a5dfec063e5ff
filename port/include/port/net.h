// Stream sockets as the platform keeps them: non-blocking, closed on exec from their first moment, and
// (SO_NOSIGPIPE) without a signal when the peer is gone.
//
// Thread-safety: reentrant. No call blocks or is interrupted; a failure is -1 with errno.
#pragma once

#include <cstddef>
#include <sys/types.h>

#pragma GCC visibility push(default)

// A new IPv4 TCP socket, and the next connection of a listening one; both belong to the caller.
int port_tcp_socket();
int port_tcp_accept(int listening);

// A new local (AF_UNIX) socket. The next connection of a listening one waits in `read` and `write`, which may
// be interrupted.
int port_local_socket();
int port_local_accept(int listening);

// Gives a new local socket its name in the file system, for this user alone (mode 0600) whatever the process's mask.
// `path` has at most 107 bytes.
bool port_local_bind(int socket, const char* path);

// `send` and `recv`, on any socket. EAGAIN: nothing can be sent, or nothing is there, now. Sending to a peer
// that is gone is EPIPE.
ssize_t port_send(int socket, const void* bytes, std::size_t size);
ssize_t port_recv(int socket, void* buffer, std::size_t size, int flags);

#pragma GCC visibility pop
