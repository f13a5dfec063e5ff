#include <CoreServices/CoreServices.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <iterator>
#include <port/UniqueFd.h>
#include <port/process.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "corefoundation/CFBundle.h"
#include "host/ExecutableLink.h"
#include "host/SystemCalls.h"

namespace {

std::vector<kinfo_proc> processTable() {
    constexpr int kName[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL};
    std::vector<kinfo_proc> table;
    std::size_t size = 0;
    do {
        if (sysctl(kName, std::size(kName), nullptr, &size, nullptr, 0) != 0)
            return {};
        table.resize(size / sizeof(kinfo_proc));
    } while (sysctl(kName, std::size(kName), table.data(), &size, nullptr, 0) != 0 && errno == ENOMEM);
    table.resize(size / sizeof(kinfo_proc));
    return table;
}

std::vector<UInt32> ownProcesses() {
    std::vector<UInt32> processes;
    for (const kinfo_proc& process : processTable())
        if (process.kp_eproc.e_ucred.cr_uid == ::geteuid())
            processes.push_back(static_cast<UInt32>(process.kp_proc.p_pid));
    std::sort(processes.begin(), processes.end());
    return processes;
}

// The program of a process of this user; empty when there is none.
std::string_view programOf(const ProcessSerialNumber& process, char (&buffer)[PATH_MAX]) {
    const std::string folder = "/proc/" + std::to_string(process.lowLongOfPSN);
    struct stat status;
    if (process.highLongOfPSN != 0 || ::stat(folder.c_str(), &status) != 0 || status.st_uid != ::geteuid())
        return {};
    return port::readExecutableLink(AT_FDCWD, (folder + "/exe").c_str(), buffer);
}

OSType codeAt(const unsigned char* bytes) {
    return OSType{bytes[0]} << 24 | OSType{bytes[1]} << 16 | OSType{bytes[2]} << 8 | bytes[3];
}

ProcessInfoRec readCodes(std::string_view bundle) {
    constexpr std::size_t kCodesSize = 8;
    const std::string path = std::string(bundle) + "/Contents/PkgInfo";
    // Without O_NONBLOCK a named pipe in the file's place would hold us.
    const port::UniqueFd file(port::sys::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY));
    unsigned char codes[kCodesSize];
    if (bundle.empty() || !file || port::sys::read(file.get(), codes, sizeof codes) != sizeof codes)
        return {};
    return {codeAt(codes), codeAt(codes + kCodesSize / 2)};
}

} // namespace

OSErr GetNextProcess(ProcessSerialNumber* process) {
    thread_local std::vector<UInt32> known;
    if (process->lowLongOfPSN == kNoProcess || known.empty())
        known = ownProcesses();
    const auto next = std::upper_bound(known.begin(), known.end(), process->lowLongOfPSN);
    *process = {0, next == known.end() ? kNoProcess : *next};
    return next == known.end() ? procNotFound : noErr;
}

OSErr GetCurrentProcess(ProcessSerialNumber* process) {
    *process = {0, static_cast<UInt32>(::getpid())};
    return noErr;
}

OSErr GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info) {
    char buffer[PATH_MAX];
    const std::string_view program = programOf(*process, buffer);
    if (program.empty())
        return procNotFound;
    *info = readCodes(port::bundleFolderOfExecutable(program));
    return noErr;
}

OSStatus GetProcessBundleLocation(const ProcessSerialNumber* process, FSRef* location) {
    char buffer[PATH_MAX];
    const std::string_view program = programOf(*process, buffer);
    if (program.empty())
        return procNotFound;
    const std::string_view bundle = port::bundleFolderOfExecutable(program);
    const std::string path(bundle.empty() ? program : bundle);
    return FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), location, nullptr);
}
