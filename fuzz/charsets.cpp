// Every kernel of this processor against naive code, in buffers of just the size that it may use, and the sized
// forms against their contract: they terminate inside the buffer, whatever the text and the size.
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

std::string Encode(std::uint32_t value) {
    if (value < 0x80)
        return {static_cast<char>(value)};
    unsigned following = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    std::string sequence = {static_cast<char>(0x7F80 >> following | value >> 6 * following)};
    while (following-- > 0)
        sequence += static_cast<char>(0x80 | (value >> 6 * following & 0x3F));
    return sequence;
}

// The values of the longest prefix of whole well-formed sequences, and its length.
std::size_t Decode(const std::string& text, std::vector<std::uint32_t>& values) {
    std::size_t read = 0;
    while (read < text.size()) {
        const auto lead = static_cast<unsigned char>(text[read]);
        const std::size_t size = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        std::uint32_t value = size == 1 ? lead : lead & 0x7FU >> size;
        for (std::size_t i = 1; i < size && read + i < text.size(); ++i)
            value = value << 6 | (static_cast<unsigned char>(text[read + i]) & 0x3F);
        const bool isCharacter = value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
        if (!isCharacter || text.compare(read, size, Encode(value)) != 0)
            break;
        values.push_back(value);
        read += size;
    }
    return read;
}

template <typename Unit>
void CheckDecoder(LCharsetsDecoded (*decode)(Unit*, const char*, std::size_t), const std::string& text,
                  const std::vector<std::uint32_t>& values, std::size_t read) {
    const std::vector<char> source(text.begin(), text.end());
    std::vector<Unit> target(utf8strlen(text.c_str()) + 1);
    const LCharsetsDecoded done = decode(target.data(), source.data(), source.size());
    Require(done.nRead == read && done.nWritten == values.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        Require(target[i] == static_cast<Unit>(values[i]));
}

template <typename Unit>
void CheckEncoder(LCharsetsEncoded (*encode)(char*, std::size_t, const Unit*, std::size_t),
                  const std::vector<Unit>& units, std::size_t room) {
    std::string expected;
    std::size_t read = 0;
    bool replaced = false;
    for (; read < units.size(); ++read) {
        const auto value = static_cast<std::uint32_t>(units[read]);
        const std::string sequence = Encode(value > 0x10FFFF ? 0xFFFD : value);
        if (expected.size() + sequence.size() > room)
            break;
        expected += sequence;
        replaced |= value > 0x10FFFF;
    }
    std::vector<char> target(room);
    const LCharsetsEncoded done = encode(target.data(), room, units.data(), units.size());
    Require(done.nRead == read && done.bReplaced == replaced);
    Require(std::string(target.data(), done.nWritten) == expected);
}

// The bytes as units, no more bits of each than the first byte says, and none of them 0.
template <typename Unit>
std::vector<Unit> UnitsOf(const std::uint8_t* data, std::size_t size) {
    std::vector<Unit> units;
    for (std::size_t i = 1; i + sizeof(Unit) <= size; i += sizeof(Unit)) {
        std::uint32_t value = 0;
        std::memcpy(&value, data + i, sizeof(Unit));
        value >>= data[0] % (8 * sizeof(Unit));
        units.push_back(static_cast<Unit>(value != 0 ? value : 'a'));
    }
    return units;
}

void CheckKernels(const LCharsetsKernels& kernels, const std::string& text, const std::uint8_t* data,
                  std::size_t size) {
    std::vector<std::uint32_t> values;
    const std::size_t read = Decode(text, values);
    CheckDecoder(kernels.DecodeTo32, text, values, read);
    CheckDecoder(kernels.DecodeTo16, text, values, read);
    const auto wide = UnitsOf<wchar_t>(data, size);
    const auto units = UnitsOf<unsigned short>(data, size);
    for (const std::size_t room : {4 * size, size, std::size_t{data[0]}}) {
        CheckEncoder(kernels.EncodeFrom32, wide, room);
        CheckEncoder(kernels.EncodeFrom16, units, room);
        CheckEncoder(kernels.EncodeFrom32, std::vector<wchar_t>(values.begin(), values.end()), room);
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
    for (const LCharsetsKernels* const* walk = LCharsetsKernelsHere(); *walk != nullptr; ++walk)
        CheckKernels(**walk, text, data, size);
    UseSizedForms(text.c_str(), data[0] + 1UL);
    return 0;
}
