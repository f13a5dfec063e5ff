#include "host/ProcessTable.h"
#include "host/ExecutableLink.h"
#include "host/SystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <port/UniqueFd.h>
#include <port/internal/exported.h>
#include <port/process.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>

namespace {

constexpr std::size_t kSpareEntries = 16; // of the size call: processes that start before the table is read
constexpr std::size_t kKernelNameLength =
    15; // of the name that the kernel keeps; of its own threads it shows more
constexpr std::size_t kStatusSize = 256; // bytes: id, name (64 of a kernel thread) and state come first

struct Status {
    std::string_view name;
    char state;
};

// "id (name) state ...": the name may hold blanks and parentheses.
Status readStatus(int process, char (&text)[kStatusSize]) {
    const port::UniqueFd file(port::sys::openat(process, "stat", O_RDONLY));
    const ssize_t length = file ? port::sys::read(file.get(), text, sizeof text) : 0;
    const std::string_view line(text, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
    const std::size_t begin = line.find('(');
    const std::size_t end = line.rfind(')');
    if (begin == line.npos || end == line.npos || line.size() - end < 3)
        return {};
    return {line.substr(begin + 1, end - begin - 1), line[end + 2]};
}

char platformState(char state) {
    switch (state) {
    case 'R':
        return SRUN;
    case 'T':
    case 't':
        return SSTOP;
    case 'X':
    case 'Z':
        return SZOMB;
    default:
        return SSLEEP;
    }
}

// False when the process has ended in the meantime. All of it is read through one descriptor of its folder,
// which never shows another process that got the same id.
bool readProcess(int table, const char* folder, pid_t id, kinfo_proc& result) {
    const port::UniqueFd process(port::sys::openat(table, folder, O_PATH | O_DIRECTORY));
    struct stat owner;
    if (!process || fstat(process.get(), &owner) != 0)
        return false;
    char text[kStatusSize];
    const Status status = readStatus(process.get(), text);
    if (status.state == 0)
        return false;
    char path[PATH_MAX];
    std::string_view name = port::readExecutableLink(process.get(), "exe", path);
    name = name.empty() ? status.name.substr(0, kKernelNameLength) : name.substr(name.rfind('/') + 1);

    result = {};
    result.kp_proc.p_stat = platformState(status.state);
    result.kp_proc.p_pid = id;
    name.copy(result.kp_proc.p_comm, MAXCOMLEN);
    result.kp_eproc.e_ucred.cr_uid = owner.st_uid;
    return true;
}

int fail(int error) {
    errno = error;
    return -1;
}

int sizeOfTable(std::size_t& size) {
    std::size_t count = kSpareEntries;
    if (!port::forEachProcess([&](int, const char*, pid_t) { return ++count != 0; }))
        return -1;
    size = count * sizeof(kinfo_proc);
    return 0;
}

int readTable(char* buffer, std::size_t& size) {
    std::size_t used = 0;
    bool fits = true;
    const bool read = port::forEachProcess([&](int table, const char* folder, pid_t id) {
        kinfo_proc process;
        if (!readProcess(table, folder, id, process))
            return true;
        fits = size - used >= sizeof process;
        if (fits) {
            std::memcpy(buffer + used, &process, sizeof process);
            used += sizeof process;
        }
        return fits;
    });
    size = used;
    return !read ? -1 : fits ? 0 : fail(ENOMEM);
}

template <typename Number>
int giveNumber(Number number, void* buffer, std::size_t& size) {
    const std::size_t room = buffer == nullptr ? sizeof number : size;
    size = std::min(room, sizeof number);
    if (buffer != nullptr)
        std::memcpy(buffer, &number, size);
    return room < sizeof number ? fail(ENOMEM) : 0;
}

int refusal(const std::size_t* oldLength, const void* newValue) {
    return newValue != nullptr ? EPERM : oldLength == nullptr ? EFAULT : 0;
}

bool asksForProcesses(const int* name, unsigned length) {
    return (length == 3 || length == 4) && name[0] == CTL_KERN && name[1] == KERN_PROC &&
           name[2] == KERN_PROC_ALL;
}

bool asksForMemory(const int* name, unsigned length) {
    return length == 2 && name[0] == CTL_HW && name[1] == HW_MEMSIZE;
}

} // namespace

template <typename>
int sysctl(const int* name, unsigned nameLength, void* oldValue, std::size_t* oldLength, const void* newValue,
           std::size_t) {
    if (const int error = refusal(oldLength, newValue))
        return fail(error);
    if (asksForProcesses(name, nameLength))
        return oldValue == nullptr ? sizeOfTable(*oldLength)
                                   : readTable(static_cast<char*>(oldValue), *oldLength);
    if (!asksForMemory(name, nameLength))
        return fail(ENOENT);
    struct sysinfo machine;
    if (::sysinfo(&machine) != 0)
        return -1;
    return giveNumber(std::uint64_t{machine.totalram} * machine.mem_unit, oldValue, *oldLength);
}
template PORT_EXPORTED int sysctl<>(const int*, unsigned, void*, std::size_t*, const void*, std::size_t);

template <typename>
int sysctlbyname(const char* name, void* oldValue, std::size_t* oldLength, const void* newValue,
                 std::size_t) {
    if (const int error = refusal(oldLength, newValue))
        return fail(error);
    if (std::strcmp(name, "hw.optional.x86_64") != 0)
        return fail(ENOENT);
    utsname system;
    const bool is64Bit = uname(&system) == 0 && std::strcmp(system.machine, "x86_64") == 0;
    return giveNumber(std::int32_t{is64Bit}, oldValue, *oldLength);
}
template PORT_EXPORTED int sysctlbyname<>(const char*, void*, std::size_t*, const void*, std::size_t);
