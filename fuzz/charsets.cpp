// The kernels of this processor against the portable form, and the sized forms against their contract: they
// terminate inside the buffer, whatever the text and the size.
#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsKernels.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void Require(bool holds) {
    if (!holds)
        std::abort();
}

void CompareDecoders(const std::string& text) {
    std::vector<wchar_t> expected(utf8strlen(text.c_str()) + 1);
    const LCharsetsDecoded portable =
        LCharsetsPortableKernels.DecodeTo32(expected.data(), text.data(), text.size());
    for (const LCharsetsKernels* const* walk = LCharsetsKernelsHere(); *walk != nullptr; ++walk) {
        std::vector<wchar_t> wide(utf8strlen(text.c_str()) + 1);
        std::vector<unsigned short> units(wide.size());
        const LCharsetsDecoded to32 = (*walk)->DecodeTo32(wide.data(), text.data(), text.size());
        const LCharsetsDecoded to16 = (*walk)->DecodeTo16(units.data(), text.data(), text.size());
        Require(to32.nRead == portable.nRead && to32.nWritten == portable.nWritten);
        Require(to16.nRead == portable.nRead && to16.nWritten == portable.nWritten);
        for (std::size_t i = 0; i < portable.nWritten; ++i) {
            Require(wide[i] == expected[i]);
            Require(units[i] == static_cast<unsigned short>(expected[i]));
        }
        std::string back(4 * portable.nWritten, '\0');
        const LCharsetsEncoded encoded =
            (*walk)->EncodeFrom32(back.data(), back.size(), wide.data(), portable.nWritten);
        Require(std::string_view(back.data(), encoded.nWritten) ==
                std::string_view(text).substr(0, to32.nRead));
    }
}

template <typename Unit, typename Copy>
std::vector<Unit> Sized(std::size_t size, Copy copy) {
    std::vector<Unit> buffer(size, Unit{'#'});
    copy(buffer.data());
    std::size_t length = 0;
    while (length < size && buffer[length] != 0)
        ++length;
    Require(length < size);
    return buffer;
}

void UseSizedForms(const char* text, unsigned long n) {
    const auto units =
        Sized<unsigned short>(n, [&](unsigned short* to) { LCopyUnicodeFromUTF8(to, text, n); });
    Sized<char>(n, [&](char* to) { LCopyUTF8FromUnicode(to, units.data(), n); });
    Sized<wchar_t>(n, [&](wchar_t* to) { LCopyUTF32FromUTF8(to, text, n); });
    using Form = void (*)(char*, const char*, unsigned long);
    for (const Form form : {Form{LCopyToISO88591}, Form{LCopyFromISO88591}, Form{LCopyToISO88595},
                            Form{LCopyAnsiFromUTF8}, Form{LCopyUTF8FromAnsi}})
        Sized<char>(n, [&](char* to) { form(to, text, n); });
    Sized<char>(n, [&](char* to) { Require(utf8strlcpy(to, text, n) < n); });
    Require(LCharsetsUTF8CharIndexToByteIndex(text, utf8strlen(text)) == std::strlen(text));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

// The first byte is the size of the buffers, the rest the text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text.resize(std::strlen(text.c_str()));
    CompareDecoders(text);
    UseSizedForms(text.c_str(), data[0] + 1UL);
    return 0;
}
