// Makes a zip archive of files, or extracts one, on a thread of its own; Ctrl-C stops it, and the tool
// that it runs.
//
// usage: pack ARCHIVE FILE...       adds the files, the archive is made when there is none
//        pack -x ARCHIVE FOLDER     extracts everything into the folder
#include <csignal>
#include <cstdio>
#include <cstring>

#include <base/LLimits.h>
#include <files/LFile.h>
#include <threads/LThread.h>
#include <zip/LProcessZip.h>

namespace {

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

LThread* pRunning = nullptr;

// Setting a signal is one write into a pipe, which a signal handler may do. This takes the place of the
// library's own handler, which ends the program at once.
void OnInterrupt(int) {
    pRunning->StopThreadSoon();
}

int Usage() {
    fputs("usage: pack ARCHIVE FILE...\n       pack -x ARCHIVE FOLDER\n", stderr);
    return 64;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3 || (strcmp(argv[1], "-x") == 0 && argc != 4))
        return Usage();
    PackThread pack(argv + 1, argc - 1);
    pRunning = &pack;
    std::signal(SIGINT, OnInterrupt);
    pack.Start(31);
    while (!pack.GetFinishedSignal().IsSignaled())
        pack.GetFinishedSignal().WaitSignal(LNoTimeLimit);
    return pack.nResult == LProcessStopped ? 130 : pack.nResult;
}
