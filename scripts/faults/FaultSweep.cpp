// Sweeps one driver: runs it again and again while the first, the second, ... call of each function fails, and
// looks each time at how it ended, what it said and what is on the disk. Prints a table, one line for each function
// and error, and below it what broke a rule: a crash, a hang, something torn or lost, a result that is not true.
// usage: fault_sweep DRIVER        0: no rule was broken
//        fault_sweep               the names of the drivers
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <AppKit/AppKit.h>
#include <LoginHelperContract.h>
#include <port/no_memory.h>

#include "FaultPlan.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr auto kHang = 8s; // more than any limit of what is swept
constexpr int kRunsOn = -1;
constexpr std::uint64_t kMostCalls = 600; // of one function in one run
constexpr char kSettings[] = "settings", kTree[] = "tree", kFolder[] = "folder", kText[] = "text",
               kZip[] = "zip";

constexpr struct {
    const char* szCall;
    int nError;
    const char* szError;
    bool bForGood;
} kFaults[] = {
    {"malloc", ENOMEM, "ENOMEM", false},
    {"malloc", ENOMEM, "ENOMEM", true},
    {FaultPlan::szDescriptors, EMFILE, "EMFILE", false},
    {FaultPlan::szDescriptors, EMFILE, "EMFILE", true},
    {"open", EIO, "EIO", false},
    {"open", EINTR, "EINTR", false},
    {"read", EIO, "EIO", false},
    {"read", EINTR, "EINTR", false},
    {"read", FaultPlan::nShort, "short", false},
    {"write", ENOSPC, "ENOSPC", false},
    {"write", ENOSPC, "ENOSPC", true},
    {"write", EINTR, "EINTR", false},
    {"write", FaultPlan::nShort, "short", false},
    {"fsync", EIO, "EIO", false},
    {"rename", ENOSPC, "ENOSPC", false},
    {"mmap", ENOMEM, "ENOMEM", false},
    {"pthread_create", EAGAIN, "EAGAIN", false},
    {"epoll_ctl", ENOMEM, "ENOMEM", false},
    {"accept4", ENOMEM, "ENOMEM", false},
    {"accept4", EINTR, "EINTR", false},
    {"sendmsg", ENOMEM, "ENOMEM", false},
    {"sendmsg", EINTR, "EINTR", false},
    {"sendmsg", FaultPlan::nShort, "short", false},
    {"recvmsg", ENOMEM, "ENOMEM", false},
    {"recvmsg", EINTR, "EINTR", false},
    {"recvmsg", FaultPlan::nShort, "short", false},
};

std::string FileText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteText(const fs::path& path, const std::string& sText) {
    std::ofstream(path, std::ios::binary) << sText;
}

// A place of the sweep's own, where everything is that the programs see of a user.
class Place {
public:
    Place() : root(mkdtemp(szRoot)) {
        const int nFile = open((root / "plan").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (nFile < 0 || ftruncate(nFile, sizeof(FaultPlan)) != 0)
            abort();
        pPlan = static_cast<FaultPlan*>(
            mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, nFile, 0));
        close(nFile);
        for (const char* szVariable : {"HOME", "CFFIXED_USER_HOME", "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME"})
            setenv(szVariable, Home().c_str(), 1);
        unsetenv("DBUS_SESSION_BUS_ADDRESS");
        Clear();
    }
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;
    ~Place() { fs::remove_all(root); }

    fs::path Home() const { return root / "home"; }
    fs::path Output() const { return root / "output"; }
    void Clear() const {
        fs::remove_all(Home());
        fs::create_directory(Home());
        fs::permissions(Home(), fs::perms::owner_all);
    }
    std::string Said() const { return FileText(Output()); }

private:
    char szRoot[32] = "/dev/shm/faults-XXXXXX";

public:
    fs::path root;
    FaultPlan* pPlan;
};

// A program that runs; what it says on both outputs goes into a file.
class Program {
public:
    Program(const Place& place, std::vector<std::string> words, bool bSwept, const fs::path& output) {
        std::vector<char*> pointers;
        for (std::string& sWord : words)
            pointers.push_back(sWord.data());
        pointers.push_back(nullptr);
        const std::string sPlan = (place.root / "plan").string();
        fs::remove(output); // nobody is to read what the last one said
        nProcess = fork();
        if (nProcess != 0)
            return;
        if (bSwept) {
            setenv("LD_PRELOAD", FAULT_SHIM, 1);
            setenv(FaultPlan::szVariable, sPlan.c_str(), 1);
        }
        const int nOutput = open(output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0600);
        dup2(nOutput, STDOUT_FILENO);
        dup2(nOutput, STDERR_FILENO);
        close(nOutput);
        execv(pointers[0], pointers.data());
        _exit(127);
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        if (Status() == kRunsOn) {
            kill(nProcess, SIGKILL);
            Wait();
        }
    }

    // The exit status, 128 and the signal, or that it runs on.
    int Status() {
        int nState = 0;
        if (nEnd == kRunsOn && waitpid(nProcess, &nState, WNOHANG) == nProcess)
            nEnd = WIFEXITED(nState) ? WEXITSTATUS(nState) : 128 + WTERMSIG(nState);
        return nEnd;
    }
    // The same once it has ended, or is taken for hung.
    int Wait() {
        for (const auto deadline = Clock::now() + kHang; Status() == kRunsOn && Clock::now() < deadline;)
            std::this_thread::sleep_for(200us);
        return nEnd;
    }
    void Signal(int nSignal) {
        if (Status() == kRunsOn)
            kill(nProcess, nSignal);
    }

private:
    pid_t nProcess = -1;
    int nEnd = kRunsOn;
};

// Runs a program without faults to its end.
int RunPlainly(const Place& place, std::vector<std::string> words) {
    return Program(place, std::move(words), false, place.root / "aside").Wait();
}

std::string CtlSaid(const Place& place) {
    return FileText(place.root / "aside");
}

int Ctl(const Place& place, std::initializer_list<std::string> words) {
    std::vector<std::string> all{LOGINHELPERCTL, "--timeout", place.pPlan->bForGood ? "300" : "3000"};
    all.insert(all.end(), words);
    return RunPlainly(place, std::move(all));
}

// Empty for a way in which a program may end, whatever fails; else what is wrong with it.
std::string JudgeEnd(int nStatus, const std::string& sSaid, std::initializer_list<int> statuses) {
    if (nStatus == kRunsOn)
        return "hangs";
    if (nStatus >= 128) // a fatal signal ends what has the library's handlers with a status of its own
        return "ended by a signal, " + std::to_string(nStatus) + ": " + sSaid;
    if (nStatus == PORT_STATUS_NO_MEMORY && sSaid.find("out of memory\n") != std::string::npos)
        return "";
    if (std::find(statuses.begin(), statuses.end(), nStatus) == statuses.end())
        return "status " + std::to_string(nStatus) + ": " + sSaid;
    return "";
}

bool IsFault(const Place& place, const char* szCall) {
    return strcmp(place.pPlan->szCall, szCall) == 0;
}

// Whether nothing may be said any more.
bool IsLineLost(const Place& place) {
    return IsFault(place, "write") && place.pPlan->nError == ENOSPC;
}

bool IsNoMemory(int nStatus) {
    return nStatus == PORT_STATUS_NO_MEMORY;
}

// A text of some settings file; "(none)" without one.
std::string Stored(const char* szSuite, const char* szKey) {
    const auto text = NSUserDefaults::initWithSuiteName(szSuite)->stringForKey(szKey);
    return text ? text->UTF8String() : "(none)";
}

bool IsSettingOn() {
    return NSUserDefaults::initWithSuiteName(LHelperIdentifier)->boolForKey(LSettingLaunchAtLogin);
}

void Store(const Place& place, const std::string& sSuite, const std::string& sEntries) {
    WriteText(place.Home() / (sSuite + ".plist"), "<plist version=\"1.0\"><dict>" + sEntries +
                                                      "<key>kept</key><string>yes</string></dict></plist>");
}

// The operations of the library, each by a program of its own. What was there is whole afterwards, and what was to
// be there is when the program says so.

int RunOperation(const Place& place, const char* szName) {
    strcpy(place.pPlan->szProgram, "fault_driver");
    return Program(place, {FAULT_DRIVER, szName, place.Home().string()}, true, place.Output()).Wait();
}

std::string Settings(const Place& place) {
    Store(place, "swept", "<key>value</key><string>old</string>");
    const int nStatus = RunOperation(place, kSettings);
    const std::string sValue = Stored("swept", "value");
    if (Stored("swept", "kept") != "yes" || (sValue != "old" && sValue != "new"))
        return "settings lost: " + sValue;
    if (sValue == "old" && nStatus == 0)
        return "says saved, and nothing is";
    if (sValue == "new" && nStatus == 1 && !IsFault(place, "fsync")) // then it is there, and may not last
        return "says not saved, and it is";
    return JudgeEnd(nStatus, place.Said(), {0, 1});
}

std::string TreeText(const fs::path& root) {
    std::string sAll;
    std::vector<fs::path> paths(fs::recursive_directory_iterator(root), {});
    std::sort(paths.begin(), paths.end());
    for (const fs::path& path : paths)
        sAll +=
            path.lexically_relative(root).string() + (fs::is_directory(path) ? "/" : FileText(path)) + '\n';
    return sAll;
}

// What a copy of a tree has left, and how it ended.
std::string Copy(const Place& place, const char* szOperation) {
    const fs::path from = place.Home() / "from";
    fs::create_directories(from / "inner" / "empty");
    WriteText(from / "one", std::string(70000, '1'));
    WriteText(from / "inner" / "two", "2");
    const std::string sBefore = TreeText(from);
    const int nStatus = RunOperation(place, szOperation);
    if (TreeText(from) != sBefore)
        return "the source was changed";
    if (nStatus == 0 && TreeText(place.Home() / "to") != sBefore)
        return "says copied, and it is not: " + std::to_string(TreeText(place.Home() / "to").size());
    for (const char* szFile : {"one", "inner/two"}) {
        const std::string sCopy = FileText(place.Home() / "to" / szFile);
        if (fs::exists(place.Home() / "to" / szFile) && sCopy != FileText(from / szFile) &&
            !IsNoMemory(nStatus))
            return std::string("a torn copy: ") + szFile;
    }
    for (const fs::path& path : fs::directory_iterator(place.Home()))
        if (path.filename().string().starts_with(".copy-") && !IsNoMemory(nStatus))
            return "left behind: " + path.filename().string();
    return JudgeEnd(nStatus, place.Said(), {0, 1});
}

std::string Tree(const Place& place) {
    fs::create_directory(place.Home() / "to");
    return Copy(place, kTree);
}

// Into a folder that is made for it.
std::string Folder(const Place& place) {
    return Copy(place, kFolder);
}

std::string Text(const Place& place) {
    const std::string sOld(5000, 'o');
    WriteText(place.Home() / "text", sOld);
    const int nStatus = RunOperation(place, kText);
    const std::string sNow = FileText(place.Home() / "text");
    if (sNow != sOld && sNow != std::string(20000, 'n'))
        return "torn: " + std::to_string(sNow.size()) + " bytes";
    if (sNow == sOld && nStatus == 0)
        return "says saved, and it is not";
    return JudgeEnd(nStatus, place.Said(), {0, 1});
}

std::string Zip(const Place& place) {
    const std::string sArchive = (place.Home() / "archive.zip").string();
    WriteText(place.Home() / "old", "old");
    WriteText(place.Home() / "new", "new");
    if (RunPlainly(place, {"/usr/bin/zip", "-qj", sArchive, (place.Home() / "old").string()}) != 0)
        return "no zip";
    const int nStatus = RunOperation(place, kZip);
    if (RunPlainly(place, {"/usr/bin/unzip", "-tq", sArchive, "old"}) != 0)
        return "the archive is torn";
    const bool bAdded = RunPlainly(place, {"/usr/bin/unzip", "-tq", sArchive, "new"}) == 0;
    if (!bAdded && nStatus == 0)
        return "says added, and it is not";
    return JudgeEnd(nStatus, place.Said(), {0, 1});
}

// The helper, asked by peers that meet no fault. One fault costs one answer at most.

bool WaitForLine(const Place& place, Program& program, std::string_view sLine) {
    const auto deadline = Clock::now() + kHang;
    while (place.Said().find(sLine) == std::string::npos) {
        if (program.Status() != kRunsOn)
            return place.Said().find(sLine) != std::string::npos;
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(200us);
    }
    return true;
}

std::string AskHelper(const Place& place, Program& helper) {
    unsigned dwLost = 0;
    std::string sLost;
    const std::string sPath = place.Home().string();
    const std::initializer_list<std::string> commands[] = {{"enable", sPath}, {"query"}, {"test"},
                                                           {"disable"},       {"query"}, {"test"}};
    for (const auto& words : commands) {
        const int nStatus = Ctl(place, words);
        // Without a descriptor or a thread for good a peer cannot even be turned away: it waits as long as it wants to.
        if (nStatus != 0 && nStatus != 69 && nStatus != 73 && !(place.pPlan->bForGood && nStatus == 75))
            return *words.begin() + ": " + std::to_string(nStatus) + ", " + CtlSaid(place);
        if (nStatus == 0)
            continue;
        dwLost++;
        sLost += *words.begin() + " (" + CtlSaid(place) + ") ";
    }
    if (dwLost > 1 && helper.Status() == kRunsOn && !place.pPlan->bForGood)
        return "answers lost: " + sLost;
    if (Stored(LHelperIdentifier, "kept") != "yes")
        return "settings lost";
    if (dwLost == 0 && IsSettingOn())
        return "the setting stayed on";
    return "";
}

std::string Helper(const Place& place) {
    strcpy(place.pPlan->szProgram, LOGINHELPER_NAME);
    Store(place, LHelperIdentifier, "");
    Program helper(place, {HELPER, "--serve"}, true, place.Output());
    if (WaitForLine(place, helper, LOGINHELPER_NAME ": serving")) {
        const std::string sFault = AskHelper(place, helper);
        helper.Signal(SIGTERM);
        if (!sFault.empty())
            return sFault;
    } else if (helper.Status() == kRunsOn) {
        return "runs, and does not serve: " + place.Said();
    } else if (place.Said().empty() && !IsLineLost(place)) {
        return "ended without a word, " + std::to_string(helper.Status());
    }
    const int nStatus = helper.Wait();
    return JudgeEnd(nStatus, place.Said(), {0, 69, 77});
}

// A login with the setting on: the application is launched, or a line says why not, and the setting stays.
std::string Login(const Place& place) {
    const int nTurn = open("/tmp", O_RDONLY | O_DIRECTORY | O_CLOEXEC); // as the suite's logins take turns
    flock(nTurn, LOCK_EX);
    while (!NSRunningApplication::runningApplicationsWithBundleIdentifier(LMainAppIdentifier).empty())
        std::this_thread::sleep_for(1ms);
    strcpy(place.pPlan->szProgram, LOGINHELPER_NAME);
    const fs::path bundle = place.Home() / LOGINHELPER_APP_NAME ".app" / "Contents";
    fs::create_directories(bundle / "MacOS");
    WriteText(bundle / "MacOS" / "run", "#!/bin/sh\necho >\"$HOME/launched\"\n");
    fs::permissions(bundle / "MacOS" / "run", fs::perms::owner_all);
    WriteText(bundle / "Info.plist",
              std::string("<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>") +
                  LMainAppIdentifier +
                  "</string><key>CFBundleExecutable</key><string>run</string>"
                  "<key>CFBundleVersion</key><string>" LOGINHELPER_APP_VERSION "</string></dict></plist>");
    Store(place, LHelperIdentifier,
          std::string("<key>") + LSettingLaunchAtLogin + "</key><true/><key>" + LSettingMainAppPath +
              "</key><string>" + bundle.parent_path().string() + "</string>");
    Program helper(place, {HELPER}, true, place.Output());
    const bool bWord = WaitForLine(place, helper, "launched"); // or "not launched"
    const std::string sSaid = place.Said();
    helper.Signal(SIGTERM);
    const int nStatus = helper.Wait();
    const bool bTold = sSaid.find(LOGINHELPER_NAME ": launched ") != std::string::npos;
    for (auto deadline = Clock::now() + kHang; bTold && !fs::exists(place.Home() / "launched");)
        if (Clock::now() > deadline)
            break;
    const bool bRan = fs::exists(place.Home() / "launched");
    close(nTurn);
    if (!IsSettingOn() || Stored(LHelperIdentifier, LSettingMainAppPath) != bundle.parent_path().string() ||
        Stored(LHelperIdentifier, "kept") != "yes")
        return "the setting was forgotten: " + sSaid;
    if (bTold != bRan && !IsLineLost(place))
        return (bRan ? "launched in silence: " : "says launched: ") + sSaid;
    if (!bWord && nStatus == 0 && !IsLineLost(place))
        return "no word about the launch: " + sSaid;
    return JudgeEnd(nStatus, place.Said(), {0, 69, 77});
}

// The other side: a helper without faults, and loginhelperctl under them. It says what is on the disk.
std::string Ctl(const Place& place) {
    strcpy(place.pPlan->szProgram, LOGINHELPER_CONTROL);
    Store(place, LHelperIdentifier, "");
    Program helper(place, {HELPER, "--serve"}, false, place.root / "helper");
    while (FileText(place.root / "helper").find("serving") == std::string::npos)
        std::this_thread::sleep_for(200us);
    Program ctl(place, {LOGINHELPERCTL, "enable", place.Home().string()}, true, place.Output());
    const int nStatus = ctl.Wait();
    helper.Signal(SIGTERM);
    helper.Wait();
    if (Stored(LHelperIdentifier, "kept") != "yes")
        return "settings lost";
    if (nStatus == 0 && !IsSettingOn())
        return "says on, and it is not";
    if (nStatus != 0 && place.Said().empty() && !IsLineLost(place))
        return "failed in silence, " + std::to_string(nStatus);
    return JudgeEnd(nStatus, place.Said(), {0, 66, 69, 71, 73, 74, 75, 77});
}

// Registered or not: the entry is whole or not there, what is said is true, and nothing is left afterwards.
std::string Register(const Place& place) {
    strcpy(place.pPlan->szProgram, LOGINHELPER_CONTROL);
    const fs::path folder = place.Home() / "autostart";
    Program ctl(place, {LOGINHELPERCTL, "register"}, true, place.Output());
    const int nStatus = ctl.Wait();
    const std::string sEntry = FileText(folder / LHelperSessionEntry);
    const bool bServes = Ctl(place, {"test"}) == 0;
    if (Ctl(place, {"unregister"}) != 0 || (fs::exists(folder) && !fs::is_empty(folder)))
        return "something is left: " + CtlSaid(place);
    if (!sEntry.empty() && !sEntry.ends_with("\nX-GNOME-Autostart-enabled=true\n"))
        return "a part of an entry";
    if (nStatus == 0 && (sEntry.empty() || !bServes))
        return "says registered, and it is not";
    if (nStatus != 0 && place.Said().empty() && !IsLineLost(place))
        return "failed in silence, " + std::to_string(nStatus);
    return JudgeEnd(nStatus, place.Said(), {0, 66, 69, 71, 73, 74, 75, 77});
}

constexpr struct {
    const char* szName;
    std::string (*pRun)(const Place& place);
} kDrivers[] = {{kSettings, Settings}, {kTree, Tree}, {kFolder, Folder},
                {kText, Text},         {kZip, Zip},   {"helper", Helper},
                {"login", Login},      {"ctl", Ctl},  {"register", Register}};

// All places of one fault. How many rules were broken.
unsigned Sweep(const Place& place, const char* szDriver, std::string (*pRun)(const Place&),
               decltype(kFaults[0])& fault) {
    FaultPlan& plan = *place.pPlan;
    std::vector<std::string> broken;
    std::uint64_t dwAt = 1;
    for (;; dwAt++) {
        strcpy(plan.szCall, fault.szCall);
        plan.nError = fault.nError;
        plan.bForGood = fault.bForGood;
        plan.dwAt = dwAt;
        plan.dwCalls = 0;
        plan.dwFailed = 0;
        place.Clear();
        const std::string sBroken = pRun(place);
        if (!sBroken.empty())
            broken.push_back(std::to_string(dwAt) + ": " + sBroken.substr(0, 300));
        if (plan.dwFailed == 0 || dwAt == kMostCalls)
            break;
    }
    printf("%-10s %-15s %-7s %-8s %5llu %5zu\n", szDriver, fault.szCall, fault.szError,
           fault.bForGood ? "for good" : "once", static_cast<unsigned long long>(dwAt - 1), broken.size());
    for (const std::string& sBroken : broken)
        printf("    %s\n", sBroken.c_str());
    fflush(stdout);
    return static_cast<unsigned>(broken.size());
}

} // namespace

int main(int argc, char* argv[]) {
    unsigned dwBroken = 0;
    for (const auto& driver : kDrivers) {
        if (argc < 2)
            printf("%s\n", driver.szName);
        else if (strcmp(driver.szName, argv[1]) == 0)
            for (const Place place; const auto& fault : kFaults)
                if (argc < 3 || strcmp(fault.szCall, argv[2]) == 0)
                    dwBroken += Sweep(place, driver.szName, driver.pRun, fault);
    }
    return dwBroken == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
