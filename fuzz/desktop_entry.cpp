// Desktop entries: whatever the program is called, what is written is one entry of that program and nothing else; and
// the readers take any text.
#include "servicemanagement/DesktopEntry.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void expect(bool holds) {
    if (!holds)
        std::abort();
}

std::string lineOf(const std::string& text, const std::string& start) {
    const std::size_t at = text.find("\n" + start) + 1 + start.size();
    return text.substr(at, text.find('\n', at) - at);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string bytes(reinterpret_cast<const char*>(data), size);
    static_cast<void>(port::programOf(port::unescaped(bytes)).size());
    static_cast<void>(port::programOf(bytes).size());
    const port::DesktopEntry entry{bytes, bytes, "/" + bytes};
    std::string text;
    if (!entry.write(text))
        return 0;
    expect(std::count(text.begin(), text.end(), '\n') == 7);
    expect(port::programOf(port::unescaped(lineOf(text, "Exec="))) == entry.program);
    for (const char* key : {"Name=", "Comment="})
        expect(port::unescaped(lineOf(text, key)) == bytes);
    expect(port::unescaped(lineOf(text, "TryExec=")) == entry.program);
    return 0;
}
