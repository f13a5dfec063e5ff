// Copies a folder with everything below it, on a thread of its own, while the main thread shows how far it is;
// Ctrl-C stops it.
#include <atomic>
#include <cstdio>

#include <base/LLimits.h>
#include <files/LFile.h>
#include <files/LProcessCopy.h>
#include <port/bsd.h>
#include <threads/LThreadNotifyInterface.h>

#include "../Example.h"
#include "../ProgressLine.h"

namespace {

constexpr Example example{"copytree", "Usage: copytree FROM TO\n"
                                      "Copies what is in the folder FROM into the folder TO, which is made "
                                      "when it is missing; Ctrl-C stops.\n"};

// The files that were begun; the thread counts, the display reads.
std::atomic<unsigned long> dwFiles = 0;

// What the user sees. It is called on the main thread only.
class Display : public LProcessInterfaceVoid {
public:
    void SetProgress(double dFraction) override {
        dShown = dFraction;
        line.Show(dShown, dwFiles, szFile);
    }
    void SetStatus(const char* szText, int) override { strlcpy(szFile, szText, sizeof szFile); }
    void SetError(const char* szText) override {
        line.Clear();
        std::fprintf(stderr, "copytree: %s\n", szText);
    }
    void Clear() { line.Clear(); }

private:
    ProgressLine line;
    double dShown = 0;
    char szFile[LPathBufferSize] = "";
};

// The copy reports each level of folders one line further down, and for each file what is done, then its name; the
// display wants the names.
class NamesOnly : public LProcessInterfaceNested {
public:
    using LProcessInterfaceNested::LProcessInterfaceNested;
    void SetStatus(const char* szText, int) override {
        if (bName) {
            ++dwFiles;
            pParent->SetStatus(szText, 0);
        }
        bName = !bName;
    }

private:
    bool bName = false;
};

int CopyFolders(LProcessInterface& process, const LProcessCopyFolder& copy) {
    LFile::CreateFolderTree(copy.szTarget);
    NamesOnly names(process);
    const int nResult = Process(names, copy);
    if (nResult == LProcessFailed)
        process.SetErrorF("cannot copy %s", copy.szSource);
    return nResult;
}

int Copy(const LProcessCopyFolder& folders) {
    Display display;
    int nResult = LProcessFailed;
    // A thread is a process interface: what it runs asks it whether to go on. This one's reports arrive at the
    // display, on the main thread.
    LThreadOf thread([&](LProcessInterface& process) { nResult = CopyFolders(process, folders); }, &display);
    thread.Start(31);
    const StopOnInterrupt interrupt(thread);
    std::printf("copying %s to %s, Ctrl-C stops\n", folders.szSource, folders.szTarget);
    std::fflush(stdout);
    thread.WaitAndDeliver();
    display.Clear();
    if (nResult == LProcessStopped) {
        // The file that the copy was at has been removed again.
        const unsigned long dwWhole = dwFiles > 0 ? dwFiles - 1 : 0;
        std::printf("stopped after %lu files, which are in %s\n", dwWhole, folders.szTarget);
        return StopOnInterrupt::nStatus;
    }
    std::printf(nResult == LProcessFinished ? "%lu files\n"
                                            : "%lu files, without those that are named above\n",
                dwFiles.load());
    return nResult == LProcessFinished ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    example.AnswerQuestions(argc, argv);
    if (argc != 3)
        return example.TellUsage();
    LThreadRunOnMainThread::Init();
    const int nStatus = Copy({argv[1], argv[2]});
    LThreadRunOnMainThread::Destroy();
    return nStatus;
}
