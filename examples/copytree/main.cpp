// Copies a folder with everything below it, on a thread of its own, while the main thread shows how far it is;
// Ctrl-C stops it.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include <base/LLimits.h>
#include <files/LFile.h>
#include <files/LProcessCopy.h>
#include <port/bsd.h>
#include <threads/LThreadNotifyInterface.h>

#include "../Example.h"

namespace {

constexpr Example example{"copytree", "Usage: copytree FROM TO\n"
                                      "Copies what is in the folder FROM into the folder TO, which is made "
                                      "when it is missing; Ctrl-C stops.\n"};

// What the user sees: one line that is drawn again and again. It is called on the main thread only.
class Display : public LProcessInterfaceVoid {
public:
    void SetProgress(double dFraction) override {
        dShown = dFraction;
        Draw();
    }
    void SetStatus(const char* szText, int nLine) override {
        if (nLine == 0) {
            std::printf("%s\n", szText);
            return;
        }
        strlcpy(szFile, szText, sizeof szFile);
        Draw();
    }
    void SetError(const char* szText) override { std::fprintf(stderr, "\ncopytree: %s\n", szText); }

private:
    void Draw() const {
        constexpr int nWidth = 40;
        const int nDone = std::clamp(static_cast<int>(dShown * nWidth), 0, nWidth);
        std::printf("\r[%.*s%*s] %3.0f %%  %.30s\033[K", nDone, "########################################",
                    nWidth - nDone, "", dShown * 100, szFile);
        std::fflush(stdout);
    }

    double dShown = 0;
    char szFile[LPathBufferSize] = "";
};

// The copy reports each level of folders one line further down; the display has one line for all of them.
class OneLine : public LProcessInterfaceNested {
public:
    using LProcessInterfaceNested::LProcessInterfaceNested;
    void SetStatus(const char* szText, int) override { pParent->SetStatus(szText, 1); }
};

int CopyFolders(LProcessInterface& process, const LProcessCopyFolder& copy) {
    process.SetStatusF(0, "%s to %s", copy.szSource, copy.szTarget);
    LFile::CreateFolderTree(copy.szTarget);
    OneLine names(process);
    const int nResult = Process(names, copy);
    if (nResult == LProcessFinished)
        process.SetProgress(1.0);
    else if (nResult == LProcessFailed)
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
    thread.WaitAndDeliver();
    std::printf(nResult == LProcessStopped ? "\nstopped\n" : "\n");
    if (nResult == LProcessStopped)
        return StopOnInterrupt::nStatus;
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
