// Makes a zip archive of files, or extracts one, on a thread of its own; Ctrl-C stops it, and the tool
// that it runs.
#include <cstdio>
#include <cstring>

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

    int nResult = LProcessFailed;

private:
    void ThreadFunction() override {
        nResult = strcmp(ppArguments[0], "-x") == 0 ? Extract(ppArguments[1], ppArguments[2]) : Add();
        if (nResult == LProcessFinished)
            SetProgress(1);
    }

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

    void SetStatus(const char* szText, int) override { printf("%s\n", szText); }
    void SetProgress(double dFraction) override {
        constexpr int nWidth = 40;
        const int nDone = static_cast<int>(dFraction * nWidth);
        printf("[%.*s%*s] %3.0f %%\n", nDone, "########################################", nWidth - nDone, "",
               dFraction * 100);
        fflush(stdout);
    }
    void SetError(const char* szText) override { fprintf(stderr, "pack: %s\n", szText); }

    char** ppArguments;
    int nCount;
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
    if (pack.nResult == LProcessStopped)
        return StopOnInterrupt::nStatus;
    return pack.nResult == LProcessFinished ? EXIT_SUCCESS : EXIT_FAILURE;
}
