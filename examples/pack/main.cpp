// Makes a zip archive of files, or extracts one, on a thread of its own; Ctrl-C stops it, and the tool
// that it runs.
#include <cstdio>
#include <cstring>
#include <unistd.h>

#include <base/LLimits.h>
#include <files/LFile.h>
#include <threads/LThread.h>
#include <zip/LProcessZip.h>

#include "../Example.h"

namespace {

constexpr Example example{
    "pack", "Usage: pack ARCHIVE FILE...\n"
            "  or:  pack -x ARCHIVE FOLDER\n"
            "Adds the files to a zip archive, which is made when there is none, or with -x extracts\n"
            "everything into the folder; Ctrl-C stops it.\n"};

// A thread is a process interface: what it runs reports through it and asks it whether to go on.
class PackThread : public LThread {
public:
    PackThread(char** pArguments, int nArguments) : ppArguments(pArguments), nCount(nArguments) {}
    // The work uses this object's own members, so the thread ends before they go.
    ~PackThread() override { _StopAndWait(); }

    // Says what was done, when the thread has ended. The status of the program.
    int Tell() const {
        const char* const szArchive = ppArguments[bExtract ? 1 : 0];
        if (nResult == LProcessStopped && bExtract)
            printf("stopped; what was extracted before is in %s\n", ppArguments[2]);
        else if (nResult == LProcessStopped)
            printf("stopped after %d of %d files, which are in %s\n", nBegun - 1, nCount - 1, szArchive);
        else if (nResult == LProcessFinished && !bExtract)
            printf("%d files in %s\n", nBegun, szArchive);
        else if (nResult == LProcessFinished)
            printf("%s is in %s\n", szArchive, ppArguments[2]);
        if (nResult == LProcessStopped)
            return StopOnInterrupt::nStatus;
        return nResult == LProcessFinished ? EXIT_SUCCESS : EXIT_FAILURE;
    }

private:
    void ThreadFunction() override { nResult = bExtract ? Extract(ppArguments[1], ppArguments[2]) : Add(); }

    // The tool runs in the folder of each file, so the archive's path must not depend on where that is.
    int Add() {
        char szArchive[LPathBufferSize];
        LFile::GetCurrentDirectory(szArchive);
        LFile::MakeAbsoluteFilePath(szArchive, szArchive, ppArguments[0], "");
        LProcessZipFileAdd add(szArchive, "");
        for (int i = nCount - 1; i > 0; --i) // the last one told comes first
            add.AddFile(ppArguments[i]);
        return Process(*this, add);
    }

    int Extract(const char* szArchive, const char* szFolder) {
        return Process(*this, LProcessZipFileExtractAll(szArchive, szFolder));
    }

    // The tool names what it does, a line each; a bar between its lines would be in their way.
    void SetStatus(const char* szText, int) override {
        ++nBegun;
        if (!bExtract && isatty(STDOUT_FILENO)) {
            printf("%d of %d: %s\n", nBegun, nCount - 1, szText);
            fflush(stdout);
        }
    }
    void SetError(const char* szText) override { fprintf(stderr, "pack: %s\n", szText); }

    char** const ppArguments;
    const int nCount;
    const bool bExtract = strcmp(ppArguments[0], "-x") == 0;
    int nBegun = 0;
    int nResult = LProcessFailed;
};

} // namespace

int main(int argc, char** argv) {
    example.AnswerQuestions(argc, argv);
    if (argc < 3 || (strcmp(argv[1], "-x") == 0 && argc != 4))
        return example.TellUsage();
    PackThread pack(argv + 1, argc - 1);
    pack.Start(31);
    const StopOnInterrupt interrupt(pack);
    while (!pack.GetFinishedSignal().IsSignaled())
        pack.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    return pack.Tell();
}
