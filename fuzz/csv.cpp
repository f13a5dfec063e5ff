// Lines of comma-separated items: a short buffer moves the position as a long one does and holds the beginning
// of the same item, nothing is written past it, and every item moves on.
#include "strings/LStringUtilities.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void require(bool holds, const char* what) {
    if (holds)
        return;
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
}

bool endsLine(char c) {
    return c == 0 || c == '\n' || c == '\r';
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const unsigned long room = data[0];
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    const std::string line = bytes.c_str();
    const std::unique_ptr<char[]> whole(new char[line.size() + 1]);
    const std::unique_ptr<char[]> part(new char[room + 1]);
    unsigned long position = 0;
    while (!endsLine(line[position])) {
        const unsigned long start = position;
        unsigned long partPosition = position;
        const bool found = GetCSVListItem(line.c_str(), position, whole.get(), line.size() + 1);
        GetCSVListItem(line.c_str(), partPosition, part.get(), room + 1);
        require(position > start && position <= line.size(), "the position moves on within the line");
        require(found == (whole[0] != 0), "true for an item");
        require(std::strchr(whole.get(), '"') == nullptr, "quotes are dropped");
        require(partPosition == position, "the size of the buffer does not move the position");
        require(std::strlen(part.get()) <= room, "the buffer's size holds");
        require(std::strncmp(whole.get(), part.get(), std::strlen(part.get())) == 0,
                "a cut item is a beginning");
    }
    char end[2];
    require(!GetCSVListItem(line.c_str(), position, end, sizeof(end)), "the end stays the end");
    return 0;
}
