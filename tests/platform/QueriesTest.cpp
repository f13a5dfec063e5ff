// What the library says of applications and of the machine, beside what the system's own tools and files say.
#include "platform/LApplicationQueries.h"
#include "platform/LMachineQueries.h"
#include "platform/LProcessUtilities.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <gtest/gtest.h>
#include <port/internal/seams_coreservices.h>
#include <port/internal/seams_iokit.h>
#include <set>
#include <sstream>
#include <sys/resource.h>
#include <unistd.h>

#include "support/Bundle.h"
#include "support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;

void writeFile(const std::string& path, const std::string& text) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << text;
}

std::string outputOf(const std::string& command) {
    return ChildProcess({"/bin/sh", "-c", command}).ReadAll();
}

class Queries : public testing::Test {
protected:
    PrivatePlace place;
    const std::string root = place.Path();
};

TEST_F(Queries, ProcessesByTheirCommandNames) {
    const std::string program = root + "/A-name-of-20-letters";
    fs::copy_file("/bin/sleep", program);
    EXPECT_FALSE(LIsApplicationRunning("A-name-of-20-letters"));
    EXPECT_EQ(LGetProcessUid("a-name-of-20-let"), -1);
    ChildProcess child({program, "30"});
    for (int wait = 0; wait < 500 && LGetBSDProcessUid("A-NAME-of-20-let") != child.Pid(); ++wait)
        usleep(10000);
    for (const auto& [asked, runs] : {std::pair{"A-name-of-20-letters", true},
                                      {"A-name-of-20-let", true},
                                      {"A-name-of-20-letother", true},
                                      {"queries_test", true},
                                      {"A-name-of-20-le", false},
                                      {"a-name-of-20-letters", false},
                                      {"", false}})
        EXPECT_EQ(LIsApplicationRunning(asked), runs) << asked;
    fs::remove(program);
    EXPECT_EQ(LGetBSDProcessUid("A-name-of-20-letters"), -1);
    EXPECT_EQ(LGetProcessUid("a-name-of-20-let"), child.Pid());
    child.Kill(SIGKILL);
    child.Wait();
    EXPECT_FALSE(LIsApplicationRunning("A-name-of-20-letters"));
    EXPECT_EQ(LGetProcessUid("anything"), child.Pid());
}

std::vector<kinfo_proc> processTable() {
    kinfo_proc* list = nullptr;
    const unsigned long count = LGetBSDProcessList(&list);
    std::vector<kinfo_proc> table(list, list + count);
    std::free(list);
    return table;
}

// Lines of "id user program", the program of kernel threads and the like being "-".
std::string linesOfPs() {
    return "\n" + outputOf("ps --no-headers -eo pid,euid,exe | sed -E 's| +| |g; s|^ ||; s| .deleted.$||; "
                           "s| (/.*)?/([^/]{1,16})[^/]*$| \\2|'");
}

TEST(ProcessTable, IsThatOfPs) {
    const std::string before = linesOfPs();
    std::set<std::string> ours;
    for (const auto& [process, owner] : processTable())
        for (const std::string program : {process.p_comm, "-"})
            ours.insert(std::to_string(process.p_pid) + " " + std::to_string(owner.e_ucred.cr_uid) + " " +
                        program);
    const std::string after = linesOfPs();
    if (before == "\n")
        GTEST_SKIP() << "there is no ps";
    std::istringstream lines(before.substr(1));
    for (std::string line; std::getline(lines, line);)
        EXPECT_TRUE(ours.contains(line) || after.find("\n" + line + "\n") == std::string::npos) << line;
}

TEST(ProcessTable, IsReadWhileItChanges) {
    const pid_t busy = fork();
    for (pid_t child = 1; busy == 0; waitpid(child, nullptr, 0))
        if ((child = fork()) == 0)
            _exit(0);
    for (int i = 0; i < 100; ++i) {
        std::set<pid_t> ids;
        for (const kinfo_proc& process : processTable())
            ASSERT_TRUE(ids.insert(process.kp_proc.p_pid).second) << "once each";
        ASSERT_TRUE(ids.contains(busy) && ids.contains(getpid()));
    }
    kill(busy, SIGKILL);
    waitpid(busy, nullptr, 0);
}

TEST(ProcessTable, FillsATooSmallBuffer) {
    const int name[] = {CTL_KERN, KERN_PROC, KERN_PROC_ALL, 0};
    kinfo_proc table[2];
    std::size_t size = sizeof table - 1;
    EXPECT_TRUE(sysctl(name, 4, table, &size, nullptr, 0) == -1 && errno == ENOMEM);
    EXPECT_TRUE(size == sizeof *table && table->kp_proc.p_pid > 1);
    EXPECT_TRUE(sysctlbyname("hw.other", nullptr, &size, nullptr, 0) == -1 && errno == ENOENT);
}

TEST_F(Queries, BundlesKnowTheirPlacesAndSignatures) {
    const std::string plain = HostPath("queries_host");
    const std::string folder = fs::path(plain).parent_path();
    std::size_t cut = 8;
    while ((folder[cut] & 0xC0) == 0x80)
        --cut;
    EXPECT_EQ(ChildProcess({plain}).ReadLine(),
              "0 " + folder + " " + folder.substr(0, cut) + " " + folder + "/resources");

    const std::string bundle = MakeBundleAt(root + "/Applications", "Probe", plain, "");
    writeFile(bundle + "/Contents/PkgInfo", "APPLPRBE");
    const std::string resources = bundle + "/Contents/Resources";
    ProcessSerialNumber psn = {1, 1};
    EXPECT_FALSE(LGetPSNFromSignature(0x50524245, 0x4150504C, &psn) || psn.lowLongOfPSN != 0);
    {
        ChildProcess child({bundle + "/Contents/MacOS/Probe"});
        EXPECT_EQ(child.ReadLine(),
                  "1 " + resources + " " + resources.substr(0, 8) + " " + resources + "/resources");
        EXPECT_TRUE(LGetPSNFromSignature(0xFFFFFFFF50524245, 0x4150504C, &psn));
        EXPECT_EQ(psn.lowLongOfPSN, static_cast<UInt32>(child.Pid()));
        EXPECT_FALSE(LGetPSNFromSignature(0x50524245, 0x50524245, &psn));
    }
    EXPECT_TRUE(LIsApplicationInstalled("Probe.app") && !LIsApplicationInstalled("Probe"));
    FSRef ref;
    for (const auto& [path, result] :
         {std::pair{root, kLSApplicationNotFoundErr}, {bundle, OSStatus{noErr}}}) {
        FSPathMakeRef(reinterpret_cast<const UInt8*>(path.c_str()), &ref, nullptr);
        EXPECT_EQ(LSOpenFSRef(&ref, nullptr), result);
    }
    ASSERT_TRUE(LGetPSNFromSignature(0x50524245, 0x4150504C, &psn));
    kill(static_cast<pid_t>(psn.lowLongOfPSN), SIGKILL);
}

TEST_F(Queries, RevealingAsksTheFileViewer) {
    // A stand-in for the bus tool: notes the address it is given, and answers as the file beside it says, first to
    // the question whether there is a viewer.
    const std::string log = root + "/log";
    writeFile(root + "/bin/dbus-send", "#!/bin/sh\nread viewer status <" + root + "/status\nexec >>" + log +
                                           "\nfor a; do case $a in array:*) echo \"${a#array:string:}\";"
                                           "exit $status;; esac; done\necho asked\nexit $viewer\n");
    fs::permissions(root + "/bin/dbus-send", fs::perms::owner_all);
    const std::string path = getenv("PATH");
    setenv("PATH", (root + "/bin:" + path).c_str(), 1);
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nowhere", 1);
    writeFile(root + "/folder/sub/x", "");
    fs::create_symlink("sub/x", root + "/folder/link");
    fs::create_directory(root + "/empty");
    writeFile(root + "/folder/b, \xC3\xA4%", "");
    const std::string file = "file://" + root + "/folder/b%2C%20%C3%A4%25\n";
    const auto reveal = [&](const std::string& what, const char* status) {
        writeFile(root + "/status", status);
        fs::remove(log);
        LRevealInFinder((root + what).c_str());
        return FileText(log);
    };
    EXPECT_EQ(reveal("/folder", "0 0"), "asked\n" + file);
    EXPECT_EQ(reveal("/folder", "0 1"), "asked\n" + file + "file://" + root + "/folder\n");
    for (const std::string what : {"/empty", "/absent", "/folder/link"})
        EXPECT_EQ(reveal(what, "0 1"), "asked\nfile://" + root + what + "\n");
    EXPECT_EQ(reveal("/folder", "1 1"), "asked\n") << "there is no viewer";
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    EXPECT_EQ(reveal("/folder", "0 0"), "") << "there is no bus";
    setenv("PATH", path.c_str(), 1);
}

std::vector<std::string> graphicsDevices() {
    LStringListTemplate<char> lsFound;
    lsFound.Add(1);
    LMachineGetGPUDescriptions(lsFound);
    return {lsFound.GetItems(), lsFound.GetItems() + lsFound.GetCount()};
}

TEST_F(Queries, GraphicsDevicesByTheirModels) {
    const std::string count = outputOf("cat /sys/bus/pci/devices/*/class | grep -c ^0x03");
    EXPECT_EQ(std::to_string(graphicsDevices().size()) + "\n", count);

    const char* const names[] = {"class", "vendor", "device", "label"};
    const std::pair<const char*, std::vector<std::string>> rows[] = {
        {"0000:02:00.0", {"0x030200", "0x10de", "0x0001", "Slot 2"}},
        {"0000:00:1f.0", {"0x060100", "0x8086", "0x0002", "Bridge"}},
        {"0000:01:00.0", {"0x030000", "0x8086", "0x0002", "Slot 1"}},
        {"0000:03:00.0", {"0x038000", "0x10de", "0x0002"}},
        {"0000:04:00.0", {"0x030000", "0x10de", "0x00ab"}},
        {"0000:05:00.0", {"0x030000", "nonsense", "0x0001", "Broken"}}};
    for (const auto& [address, values] : rows)
        for (std::size_t i = 0; i < values.size(); ++i)
            writeFile(root + "/pci/" + address + "/" + names[i], values[i] + "\n");
    writeFile(root + "/pci.ids", "# comment\n\n0001  First\n\t0002  Of the first\n8086  Vendor\n"
                                 "\t0001  Other\n\t\t8086 0002  Subsystem\n\t0002  Gr\xC3\xA4phics\n"
                                 "10de  Long\n\t0002  " +
                                     std::string(400, 'x') + "\nC 03  Display\n");
    const std::string devices = root + "/pci";
    const std::string ids = root + "/pci.ids";
    port_set_pci_places(devices.c_str(), ids.c_str());
    const std::vector<std::string> expected = {"Vendor Gr\xC3\xA4phics", "Slot 2",
                                               "Long " + std::string(254, 'x'), "PCI 10de:00ab"};
    EXPECT_EQ(graphicsDevices(), expected);
    port_set_pci_places(ids.c_str(), nullptr); // no folder
    EXPECT_TRUE(graphicsDevices().empty());
    port_set_pci_places(nullptr, nullptr);
}

TEST_F(Queries, MemoryAndProcessor) {
    EXPECT_EQ(outputOf("awk '/MemTotal/ {printf \"%.0f\", $2 * 1024}' /proc/meminfo"),
              std::to_string(LMemoryGetPhysicalMemorySize()));
    EXPECT_EQ(outputOf("uname -m") == "x86_64\n", LIsOS64Bit());
    const auto told = [](const char* command) {
        const std::string kilobytes = outputOf(command);
        constexpr unsigned long kLargest = 4294967295;
        return kilobytes == "unlimited\n" ? kLargest : std::min(std::stoul(kilobytes) * 1024, kLargest);
    };
    rlimit limits;
    getrlimit(RLIMIT_DATA, &limits);
    for (const rlim_t soft : {rlim_t{1} << 30, limits.rlim_max}) {
        limits.rlim_cur = soft;
        setrlimit(RLIMIT_DATA, &limits);
        EXPECT_EQ(LMemoryGetFreeHeapSize(), told("ulimit -Sd"));
        EXPECT_EQ(LMemoryGetTotalHeapSize(), told("ulimit -Hd"));
    }
}

TEST(QueriesDeathTest, OldSystemsAreNo64BitSystems) {
    EXPECT_EXIT((port_set_system_version("10.4"), _exit(LIsOS64Bit())), testing::ExitedWithCode(0), "");
}

} // namespace
