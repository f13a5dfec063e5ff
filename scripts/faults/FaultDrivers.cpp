// What the sweep runs under faults besides the programs of the product: one operation of the library a call.
// usage: fault_driver OPERATION FOLDER      0: done, 1: it said that it could not, 71: no memory
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include <Foundation/Foundation.h>
#include <files/LFile.h>
#include <files/LProcessCopy.h>
#include <port/no_memory.h>
#include <strings/LTextFile.h>
#include <threads/LProcessInterface.h>
#include <zip/LZipFile.h>

namespace {

bool SaveSettings(const std::string&) {
    const auto settings = NSUserDefaults::initWithSuiteName("swept");
    settings->setObject(*NSString::stringWithUTF8String("new"), "value");
    return settings->synchronize();
}

// What is left out is told as an error, whatever the result is.
class Listener : public LProcessInterfaceVoid {
public:
    void SetError(const char*) override { bTold = true; }
    bool bTold = false;
};

bool CopyTree(const std::string& sFolder) {
    Listener process;
    const std::string sFrom = sFolder + "/from";
    const std::string sTo = sFolder + "/to";
    return Process(process, LProcessCopyFolder{sFrom.c_str(), sTo.c_str()}) == LProcessFinished &&
           !process.bTold;
}

// It tells nobody what it has left out.
bool CopyFolder(const std::string& sFolder) {
    LFile::CopyFolderFiles((sFolder + "/from").c_str(), (sFolder + "/to").c_str());
    return false;
}

bool SaveText(const std::string& sFolder) {
    return LSaveText((sFolder + "/text").c_str(), std::string(20000, 'n').c_str()) == 0;
}

bool AddToZip(const std::string& sFolder) {
    return LZipFileAdd((sFolder + "/archive.zip").c_str(), (sFolder + "/new").c_str(), sFolder.c_str(), true,
                       LZipFileDefaultOption, nullptr, false);
}

constexpr struct {
    const char* szName;
    bool (*pRun)(const std::string& sFolder);
} kOperations[] = {{"settings", SaveSettings},
                   {"tree", CopyTree},
                   {"folder", CopyFolder},
                   {"text", SaveText},
                   {"zip", AddToZip}};

} // namespace

int main(int, char* argv[]) {
    std::set_terminate(port_end_by_exception);
    for (const auto& operation : kOperations)
        if (strcmp(operation.szName, argv[1]) == 0)
            return operation.pRun(argv[2]) ? EXIT_SUCCESS : EXIT_FAILURE;
    return 64;
}
