#include <port/bsd.h>
#include <port/runtime_folder.h>

#include "xpc/XPCRuntimeFolder.h"

bool port_runtime_folder(char* path, std::size_t size) {
    const std::string folder = port::xpcRuntimeFolder();
    strlcpy(path, folder.c_str(), size);
    return port::xpcCheckRuntimeFolder(folder, false);
}
