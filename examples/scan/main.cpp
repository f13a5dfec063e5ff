// Counts the files and folders below a folder on a thread of its own, and stops at once on Ctrl-C.
#include <cstdio>
#include <cstring>

#include <base/LLimits.h>
#include <files/LFile.h>
#include <files/LFolderIterator.h>
#include <threads/LThread.h>

#include "../Example.h"

namespace {

constexpr Example example{
    "scan", "Usage: scan [FOLDER]\n"
            "Counts the files and folders below FOLDER, or below the current one; Ctrl-C stops.\n"};

struct Counts {
    unsigned long dwFiles = 0;
    unsigned long dwFolders = 0;

    void Scan(LProcessInterface& process, const char* szFolder) {
        LFile::FolderIteratorAllFiles iterator;
        for (iterator.Open(szFolder); iterator.IsOpen() && !process.IsToStop(); iterator.Next()) {
            const char* szName = iterator.GetName();
            if (szName[0] == '.' && (szName[1] == '\0' || (szName[1] == '.' && szName[2] == '\0')))
                continue;
            ++(iterator.IsFolder() ? dwFolders : dwFiles);
            if (!iterator.IsFolder() || iterator.IsLink())
                continue;
            char szPath[LPathBufferSize];
            if (LFile::_MakeFilePath(szPath, szFolder, szName, "") == std::strlen(szName))
                Scan(process, szPath); // a longer path would have been cut
        }
    }
};

} // namespace

int main(int argc, char** argv) {
    example.AnswerQuestions(argc, argv);
    if (argc > 2)
        return example.TellUsage();
    const char* const szFolder = argc > 1 ? argv[1] : ".";
    if (LFile::FolderIteratorAllFiles look; !look.Open(szFolder)) {
        std::fprintf(stderr, "scan: %s is no folder\n", szFolder);
        return EXIT_FAILURE;
    }
    Counts counts;
    // A thread is a process interface: what it runs asks it whether to go on.
    LThreadOf scan([&](LProcessInterface& process) { counts.Scan(process, szFolder); });
    scan.Start(31);
    const StopOnInterrupt interrupt(scan);
    std::printf("scanning %s, Ctrl-C stops\n", szFolder);
    std::fflush(stdout);
    while (!scan.GetFinishedSignal().IsSignaled())
        scan.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    std::printf("%s%lu files, %lu folders\n", scan.IsToStop() ? "stopped after " : "", counts.dwFiles,
                counts.dwFolders);
    return scan.IsToStop() ? StopOnInterrupt::nStatus : EXIT_SUCCESS;
}
