// The binary reader of property lists.
#include "plist.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string error;
    checkRewriting(port::readBinaryPropertyList({data, std::min(size, port::kPropertyListFileLimit)}, error));
    return 0;
}
