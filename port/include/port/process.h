// What the kernel tells about the processes and the machine, under the platform's own names.
//
// Thread-safety: reentrant. Nothing but the calls below blocks, and they only as long as the kernel takes to
// answer. The calls are templates, so that they yield to a program's own functions of these names.
#pragma once

#include <cstddef>
#include <sys/types.h>

#pragma GCC visibility push(default)

constexpr int MAXCOMLEN = 16; // bytes of a command name, without the terminator

// States of a process.
constexpr char SIDL = 1;
constexpr char SRUN = 2;
constexpr char SSLEEP = 3;
constexpr char SSTOP = 4;
constexpr char SZOMB = 5;

struct extern_proc {
    char p_stat;
    pid_t p_pid;
    char p_comm[MAXCOMLEN + 1]; // terminated
};

struct port_ucred {
    uid_t cr_uid; // the effective user
};

struct eproc {
    port_ucred e_ucred;
};

// One process. The command name is the file name of its program, cut to MAXCOMLEN bytes; of a process that
// shows no program (another user's, a kernel thread, a zombie) it is the name that the kernel keeps, of at
// most 15 bytes.
struct kinfo_proc {
    extern_proc kp_proc;
    eproc kp_eproc;
};

constexpr int CTL_KERN = 1;
constexpr int CTL_HW = 6;
constexpr int KERN_PROC = 14;
constexpr int KERN_PROC_ALL = 0;
constexpr int HW_MEMSIZE = 24;

// Reads {CTL_KERN, KERN_PROC, KERN_PROC_ALL}, with or without a further number: an array of kinfo_proc,
// ascending by process id; or {CTL_HW, HW_MEMSIZE}: the machine's memory in bytes, a 64-bit number.
//
// `oldValue` is a buffer of *oldLength bytes, which becomes the number of bytes stored. Without a buffer
// *oldLength becomes the size to be had: of the process table that is its size now and 16 entries more, and
// no promise. A buffer that is too small gets what it holds.
// 0, or -1 with errno: ENOMEM for too small a buffer, ENOENT for another name, EPERM for a new value,
// EFAULT without `oldLength`, or what reading the table gave.
template <typename = void>
int sysctl(const int* name, unsigned nameLength, void* oldValue, std::size_t* oldLength, const void* newValue,
           std::size_t newLength);

// The same by name, for "hw.optional.x86_64": a 32-bit number, 1 on a 64-bit x86 kernel, else 0.
template <typename = void>
int sysctlbyname(const char* name, void* oldValue, std::size_t* oldLength, const void* newValue,
                 std::size_t newLength);

#pragma GCC visibility pop
