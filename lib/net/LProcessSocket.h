// Blocking TCP operations that a stop request ends within 200 ms: connecting, sending and receiving.
//
// Every operation waits in slices of 200 ms on the calling thread and asks the process interface between them
// whether to stop. It returns LProcessFinished (0), LProcessStopped (1), or LProcessFailed (2): the time has
// passed, the peer refused or closed, the socket is -1 or broken.
//
// Time-outs are unsigned milliseconds and count idle slices only: max(1, ceil(timeout / 200)) of them end the
// operation, and a slice in which something moves costs nothing. There is no value without a limit, and
// for connecting and receiving one above 0xFFFFFF37 allows a single slice.
//
// Thread-safety: an operation touches only the socket given to it. One thread may receive from a socket or
// wait for it while another sends on it; two that receive, or two that send, may not. Sockets of any making
// will do, no operation relies on their being non-blocking; but a descriptor above 1023, which `select` cannot
// watch, fails. POSIX signals neither end a wait nor lengthen it; sending raises no SIGPIPE.
#pragma once

#include "net/LIPAddress.h"
#include "net/LIPSocket.h"
#include "threads/LProcessInterface.h"

#pragma GCC visibility push(default)

// Closes what the socket holds and connects a new one. Unless the result is 0 the socket is closed and -1.
// An unresolved address fails at once. An error that the network reports after connecting has begun may show
// only at the first sending or receiving.
int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket, const LIPAddressWithPort& address,
                   unsigned int timeout);
// Tries the addresses in order, each with the whole time-out, until one gives another result than 2.
int ProcessConnect(LProcessInterface& process, LIPSocketTCP& socket,
                   const LIPAddressMultiHomedWithPort& address, unsigned int timeout);

// Sends all the bytes. After 1 and 2 it is not told how many went out.
int ProcessSend(LProcessInterface& process, LIPSocketTCPRef socket, const void* pData, unsigned long dwSize,
                unsigned int timeout);

// Waits for data or the peer's orderly close; reads nothing. A broken descriptor counts as readable.
int ProcessWaitForDataOrClose(LProcessInterface& process, LIPSocketTCPRef socket, unsigned int timeout);

// In the operations below the peer's orderly close is a failure, buffers are not terminated, and `dwReceived`
// is set to 0 first and tells afterwards, whatever the result, how many bytes the buffer holds.

// What is there, at least one byte and at most the size, as soon as something is there. A size of 0 is
// finished at once.
int ProcessRecvReady(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                     unsigned long& dwReceived, unsigned int timeout);

// The whole size, each part of it within the time-out. A size of 0, or of 2^63 and more, is finished at once.
int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                     unsigned int timeout);
int ProcessRecvBytes(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                     unsigned long& dwReceived, unsigned int timeout);

// The byte is 0 unless the result is 0.
int ProcessRecvByte(LProcessInterface& process, LIPSocketTCPRef socket, unsigned char& byte,
                    unsigned int timeout);

// Up to and including the first byte that is one of the terminators, and nothing beyond it. When what is
// there, at most the size, holds none, all of it: the caller calls again for the rest of the line. A byte 0
// never terminates.
int ProcessRecvToCharacter(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer,
                           unsigned long dwSize, unsigned long& dwReceived, const char* szTerminators,
                           unsigned int timeout);

// Everything until the buffer is full, the peer closes or fails, or the time has passed: 0 then, and 1 when
// it was stopped.
int ProcessRecvAll(LProcessInterface& process, LIPSocketTCPRef socket, void* pBuffer, unsigned long dwSize,
                   unsigned long& dwReceived, unsigned int timeout);

#pragma GCC visibility pop
