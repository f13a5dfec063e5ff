// Files, folders, lines, settings and bookmarks.
#include "Operations.h"

#include <Foundation/Foundation.h>
#include <fcntl.h>
#include <files/LFile.h>
#include <files/LProcessCopy.h>
#include <files/LReadFileBuffered.h>
#include <files/LSandboxBookmarkManager.h>
#include <files/LWriteFileBuffered.h>
#include <filesystem>
#include <fstream>
#include <port/UniqueFd.h>
#include <sys/wait.h>
#include <threads/LThread.h>
#include <unistd.h>

namespace counts {
namespace {

using bench::need;

std::string makeFile(const std::string& path, std::size_t size = 2000) {
    std::ofstream(path) << std::string(size, 'x');
    return path;
}

// Names are made beforehand, so that what making them takes from the heap does not count.
std::vector<std::string> names;

void makeNames(const std::string& folder, unsigned times) {
    names.clear();
    for (unsigned i = 0; i < times; ++i)
        names.push_back(folder + "/file" + std::to_string(i));
}

void makeFiles(const std::string& folder, unsigned times) {
    makeNames(folder, times);
    for (const std::string& name : names)
        makeFile(name);
}

void nothing(const std::string&, unsigned) {}

Work askForMissing(bool (*exists)(const char*)) {
    return [exists](unsigned times) {
        while (times-- > 0)
            need(!exists("/tmp/none/of/this/name"), "what is missing was found");
    };
}

bool copyBare(const char* from, const char* to) {
    char buffer[4096];
    const port::UniqueFd source(open(from, O_RDONLY | O_CLOEXEC));
    const port::UniqueFd target(open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    const ssize_t got = read(source.get(), buffer, sizeof buffer);
    return got > 0 && write(target.get(), buffer, static_cast<std::size_t>(got)) == got;
}

// Copies the first file over all others, whether they are there or not.
FolderWork copy(bool (*copyFile)(const char*, const char*)) {
    return [=](const std::string&, unsigned) {
        for (std::size_t i = 1; i < names.size(); ++i)
            need(copyFile(names[0].c_str(), names[i].c_str()), "a file was not copied");
    };
}

void makeFirst(const std::string& folder, unsigned times) {
    makeNames(folder, times);
    makeFile(names[0]);
}

void makeFolder(const std::string& folder, unsigned times) {
    std::filesystem::create_directory(folder + "/from");
    makeFiles(folder + "/from", times);
}

// What costs for a file more: the folder has so many.
void copyFolder(const std::string& folder, unsigned) {
    LFile::CopyFolderFiles((folder + "/from").c_str(), (folder + "/to").c_str());
    need(LFile::Exists((folder + "/to/file0").c_str()), "the folder was not copied");
}

void makePieces(const std::string& folder, unsigned times) {
    makeFile(folder + "/from", times * std::size_t{LProcessCopyPiece});
}

// On a thread that could be stopped, with progress; what costs for a piece more.
void copyPieces(const std::string& folder, unsigned) {
    const std::string from = folder + "/from";
    const std::string to = folder + "/to";
    int result = LProcessFailed;
    LThreadOf thread([&](LProcessInterface& process) {
        result = Process(process, LProcessCopyFile{from.c_str(), to.c_str()});
    });
    thread.Start(31);
    thread.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    need(result == LProcessFinished, "the file was not copied");
}

constexpr char kLine[] = "a line of an ordinary length, as a text has it";

void makeLines(const std::string& folder, unsigned times) {
    std::ofstream out(folder + "/lines");
    while (times-- > 0)
        out << kLine << '\n';
}

void readLines(const std::string& folder, unsigned times) {
    const port::UniqueFd file(open((folder + "/lines").c_str(), O_RDONLY | O_CLOEXEC));
    LReadFileBuffered reader(file.get());
    char line[200];
    while (reader.ReadLine(line, sizeof line))
        --times;
    need(times == 0, "another number of lines");
}

void writeLines(const std::string& folder, unsigned times) {
    const port::UniqueFd file(open((folder + "/lines").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    LWriteFileBuffered writer(file.get());
    while (times-- > 0)
        writer.WriteLineLF(kLine);
}

// A home apart from what the user grants.
void live(const std::string& folder) {
    const std::string home = folder + "/home";
    std::filesystem::create_directory(home);
    setenv("HOME", home.c_str(), 1);
    setenv("XDG_CONFIG_HOME", home.c_str(), 1);
}

void addBookmarks(const std::string& folder, unsigned) {
    live(folder);
    LSandboxBookmarkManager::Create();
    for (const std::string& name : names) {
        const NSRef<NSURL> url = NSURL::fileURLWithPath(name.c_str());
        need(LSandboxBookmarkManager::AddFilePath(name.c_str(), url.get(), true, true, name.c_str()),
             "no access to a file");
    }
}

// In another process: this one is to have seen nothing of it.
void makeStaleBookmarks(const std::string& folder, unsigned times) {
    makeFiles(folder, times);
    const pid_t child = fork();
    if (child == 0) {
        addBookmarks(folder, times);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    for (const std::string& name : names)
        std::filesystem::rename(name, name + "moved");
}

void startWithStaleBookmarks(const std::string& folder, unsigned times) {
    live(folder);
    LSandboxBookmarkManager::Create();
    for (const auto* item = LSandboxBookmarkManager::pInstance->loFiles.GetFirst(); item != nullptr;
         item = item->pNext)
        --times;
    need(times == 0, "not every bookmark was found");
}

void saveSettings(const std::string& folder, unsigned times) {
    live(folder);
    const auto settings = NSUserDefaults::initWithSuiteName("counts");
    while (times-- > 0) {
        settings->setObject(*NSString::stringWithUTF8String(times % 2 == 0 ? "even" : "odd"), "value");
        need(settings->synchronize(), "the settings were not saved");
    }
}

void readSettings(const std::string& folder, unsigned times) {
    saveSettings(folder, 1);
    const auto settings = NSUserDefaults::initWithSuiteName("counts");
    while (times-- > 0)
        need(settings->stringForKey("value").get() != nullptr, "the value is gone");
}

} // namespace

std::vector<Operation> fileOperations() {
    const auto isThere = [](const char* path) { return access(path, F_OK) == 0; };
    return {
        {"`LFile::Exists` of what is missing", counted(askForMissing(LFile::Exists)),
         counted(askForMissing(isThere))},
        {"`LFile::CopyFile` of 2,000 bytes", countedIn(makeFirst, copy(LFile::CopyFile)),
         countedIn(makeFirst, copy(copyBare))},
        {"the same over an old file", countedIn(makeFiles, copy(LFile::CopyFile)),
         countedIn(makeFiles, copy(copyBare))},
        {"`LFile::CopyFolderFiles`, a file", countedIn(makeFolder, copyFolder), {}},
        {"copy with progress on a thread, a piece", countedIn(makePieces, copyPieces), {}},
        {"`LReadFileBuffered::ReadLine`", countedIn(makeLines, readLines, 100, 10000), {}},
        {"`LWriteFileBuffered::WriteLineLF`", countedIn(nothing, writeLines, 100, 10000), {}},
        {"a setting changed and saved", countedIn(nothing, saveSettings), {}},
        {"a setting read", countedIn(nothing, readSettings), {}},
        {"a bookmark added", countedIn(makeFiles, addBookmarks, 5, 20), {}},
        {"a start with stale bookmarks, each",
         countedIn(makeStaleBookmarks, startWithStaleBookmarks, 5, 20),
         {}},
    };
}

} // namespace counts
