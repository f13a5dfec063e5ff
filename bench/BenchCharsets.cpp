// Character sets: UTF-8 to UTF-32 and back, and to 16-bit units, in six kinds of text and in one short
// string. The floor reads and writes as many bytes; the peers are the host's converter and a loop over the bytes. And
// walks over UTF-8 that convert nothing, beside such a loop.
#include "Driver.h"

#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsKernels.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iconv.h>
#include <memory>
#include <random>

namespace bench {
namespace {

constexpr std::size_t kTextBytes = 1 << 20;

// ---- Texts ----

struct Script {
    const char* name;
    std::vector<std::string> letters; // of words
    std::vector<std::string> rare;    // the others, one letter in twelve
    bool spaced;
};

const std::vector<std::string> kLatin = {"e", "t", "a", "o", "i", "n", "s",
                                         "r", "h", "l", "d", "c", "u", "m"};

const Script kScripts[] = {
    {"ASCII", kLatin, {"E", "-", ","}, true},
    {"accented prose", kLatin, {"\xC3\xA9", "\xC3\xA0", "\xC3\xBC", "\xC3\xA7"}, true},
    {"Cyrillic",
     {"\xD0\xB0", "\xD0\xB5", "\xD0\xB8", "\xD0\xBE", "\xD1\x82", "\xD1\x80", "\xD0\xBD", "\xD1\x81"},
     {"\xD1\x83", "\xD0\x92"},
     true},
    {"CJK",
     {"\xE4\xB8\xAD", "\xE6\x96\x87", "\xE5\xAD\x97", "\xE6\xBC\xA2", "\xE3\x81\xAE", "\xE3\x81\x99"},
     {"\xE3\x80\x82", "\xE3\x80\x81"},
     false},
    {"emoji",
     {"\xF0\x9F\x98\x80", "\xF0\x9F\x9A\x80", "\xF0\x9F\x8E\x89", "\xF0\x9F\xA6\x8A"},
     {"\xF0\x9F\x91\x8D"},
     false},
    {"mixed",
     {"e", "t", "\xD0\xB0", "\xC3\xA9", "\xE4\xB8\xAD", "\xE6\x96\x87", "\xF0\x9F\x98\x80"},
     {"\xE3\x80\x82"},
     true},
};

struct Text {
    std::string utf8;
    std::vector<wchar_t> utf32; // terminated, as the text above is
};

Text MakeText(const Script& script, std::size_t bytes) {
    std::mt19937 random(1);
    Text text;
    while (text.utf8.size() + 4 < bytes)
        if (script.spaced && random() % 6 == 0)
            text.utf8 += ' ';
        else
            text.utf8 += random() % 12 == 0 ? script.rare[random() % script.rare.size()]
                                            : script.letters[random() % script.letters.size()];
    text.utf32.resize(text.utf8.size() + 1);
    LCopyUTF32FromUTF8(text.utf32.data(), text.utf8.c_str(), text.utf32.size());
    text.utf32.resize(std::wcslen(text.utf32.data()) + 1);
    return text;
}

// ---- Floor and peers ----

// Reads `from` bytes and writes `to` bytes, 64 at a time: what no conversion can do without.
void ReadAndWrite(char* target, std::size_t to, const char* source, std::size_t from) {
    using Vector [[gnu::vector_size(64)]] = std::uint64_t;
    Vector read{};
    std::size_t i = 0;
    for (Vector value; i + sizeof value <= from; i += sizeof value) {
        std::memcpy(&value, source + i, sizeof value);
        read |= value;
    }
    for (; i < from; ++i)
        read[0] |= static_cast<unsigned char>(source[i]);
    keep(read);
    std::memset(target, static_cast<int>(read[0] & 1), to);
}

class HostConverter {
public:
    HostConverter(const char* to, const char* from) : handle_(iconv_open(to, from)) {}
    ~HostConverter() { iconv_close(handle_); }
    HostConverter(const HostConverter&) = delete;
    HostConverter& operator=(const HostConverter&) = delete;

    void Convert(void* target, std::size_t room, const void* source, std::size_t bytes) {
        char* in = static_cast<char*>(const_cast<void*>(source));
        char* out = static_cast<char*>(target);
        iconv(handle_, &in, &bytes, &out, &room);
    }

private:
    iconv_t handle_;
};

// What one writes by hand: a byte, its length, its followers.
template <typename Unit>
std::size_t DecodeByteWise(Unit* target, const char* text) {
    Unit* out = target;
    const auto* p = reinterpret_cast<const unsigned char*>(text);
    const auto follows = [](unsigned char byte) { return (byte & 0xC0) == 0x80; };
    while (*p != 0) {
        std::uint32_t value = *p;
        if (value < 0x80) {
            ++p;
        } else if (value >= 0xC2 && value < 0xE0 && follows(p[1])) {
            value = (value & 0x1F) << 6 | (p[1] & 0x3FU);
            p += 2;
        } else if (value >= 0xE0 && value < 0xF0 && follows(p[1]) && follows(p[2])) {
            value = (value & 0x0F) << 12 | (p[1] & 0x3FU) << 6 | (p[2] & 0x3FU);
            if (value < 0x800 || (value >= 0xD800 && value < 0xE000))
                break;
            p += 3;
        } else if (value >= 0xF0 && value < 0xF5 && follows(p[1]) && follows(p[2]) && follows(p[3])) {
            value = (value & 7) << 18 | (p[1] & 0x3FU) << 12 | (p[2] & 0x3FU) << 6 | (p[3] & 0x3FU);
            if (value < 0x10000 || value > 0x10FFFF)
                break;
            p += 4;
        } else {
            break;
        }
        *out++ = static_cast<Unit>(value);
    }
    *out = 0;
    return static_cast<std::size_t>(out - target);
}

std::size_t EncodeByteWise(char* target, const wchar_t* text) {
    char* out = target;
    for (; *text != 0; ++text) {
        const auto value = static_cast<std::uint32_t>(*text);
        const auto put = [&out](std::uint32_t byte) { *out++ = static_cast<char>(byte); };
        if (value < 0x80) {
            put(value);
        } else if (value < 0x800) {
            put(0xC0 | value >> 6);
            put(0x80 | (value & 0x3F));
        } else if (value < 0x10000) {
            put(0xE0 | value >> 12);
            put(0x80 | (value >> 6 & 0x3F));
            put(0x80 | (value & 0x3F));
        } else {
            put(0xF0 | value >> 18);
            put(0x80 | (value >> 12 & 0x3F));
            put(0x80 | (value >> 6 & 0x3F));
            put(0x80 | (value & 0x3F));
        }
    }
    *out = 0;
    return static_cast<std::size_t>(out - target);
}

// ---- Cases ----

// The ways to convert one text in one direction, to be timed in the unit of a case.
struct Way {
    std::string name;
    std::function<void(const Text&, char* target)> convert;
};

constexpr char kHostName[] = "iconv";
constexpr char kByteWiseName[] = "byte-wise loop";

wchar_t* AsWide(char* target) {
    return reinterpret_cast<wchar_t*>(target);
}
unsigned short* AsUnicode(char* target) {
    return reinterpret_cast<unsigned short*>(target);
}

// A row for each kernel that this processor can run.
template <typename Convert>
void AddKernels(std::vector<Way>& ways, Convert convert) {
    for (const LCharsetsKernels* const* walk = LCharsetsKernelsHere(); *walk != nullptr; ++walk)
        ways.push_back(
            {std::string("kernel: ") + (*walk)->szName,
             [kernels = *walk, convert](const Text& text, char* to) { convert(*kernels, text, to); }});
}

std::vector<Way> DecodeTo32() {
    const auto host = std::make_shared<HostConverter>("WCHAR_T", "UTF-8");
    std::vector<Way> ways = {
        {"floor: vector reads and writes",
         [](const Text& text, char* to) {
             ReadAndWrite(to, 4 * text.utf32.size(), text.utf8.data(), text.utf8.size());
         }},
        {kHostName,
         [host](const Text& text, char* to) {
             host->Convert(to, 4 * text.utf32.size(), text.utf8.data(), text.utf8.size());
         }},
        {kByteWiseName, [](const Text& text, char* to) { DecodeByteWise(AsWide(to), text.utf8.c_str()); }},
    };
    AddKernels(ways, [](const LCharsetsKernels& kernels, const Text& text, char* to) {
        kernels.DecodeTo32(AsWide(to), text.utf8.data(), text.utf8.size());
    });
    ways.push_back({"LCopyUTF32FromUTF8", [](const Text& text, char* to) {
                        LCopyUTF32FromUTF8(AsWide(to), text.utf8.c_str(), text.utf8.size() + 1);
                    }});
    return ways;
}

std::vector<Way> DecodeTo16() {
    const auto host = std::make_shared<HostConverter>("UTF-16LE", "UTF-8");
    std::vector<Way> ways = {
        {"floor: vector reads and writes",
         [](const Text& text, char* to) {
             ReadAndWrite(to, 2 * text.utf32.size(), text.utf8.data(), text.utf8.size());
         }},
        {kHostName,
         [host](const Text& text, char* to) {
             host->Convert(to, 4 * text.utf32.size(), text.utf8.data(), text.utf8.size());
         }},
        {kByteWiseName, [](const Text& text, char* to) { DecodeByteWise(AsUnicode(to), text.utf8.c_str()); }},
    };
    AddKernels(ways, [](const LCharsetsKernels& kernels, const Text& text, char* to) {
        kernels.DecodeTo16(AsUnicode(to), text.utf8.data(), text.utf8.size());
    });
    ways.push_back({"LCopyUnicodeFromUTF8", [](const Text& text, char* to) {
                        LCopyUnicodeFromUTF8(AsUnicode(to), text.utf8.c_str(), text.utf8.size() + 1);
                    }});
    return ways;
}

std::vector<Way> EncodeFrom32() {
    const auto host = std::make_shared<HostConverter>("UTF-8", "WCHAR_T");
    std::vector<Way> ways = {
        {"floor: vector reads and writes",
         [](const Text& text, char* to) {
             ReadAndWrite(to, text.utf8.size(), reinterpret_cast<const char*>(text.utf32.data()),
                          4 * text.utf32.size());
         }},
        {kHostName,
         [host](const Text& text, char* to) {
             host->Convert(to, text.utf8.size() + 1, text.utf32.data(), 4 * text.utf32.size());
         }},
        {kByteWiseName, [](const Text& text, char* to) { EncodeByteWise(to, text.utf32.data()); }},
    };
    AddKernels(ways, [](const LCharsetsKernels& kernels, const Text& text, char* to) {
        kernels.EncodeFrom32(to, 4 * text.utf32.size(), text.utf32.data(), text.utf32.size() - 1);
    });
    ways.push_back({"LCopyUTF8FromUTF32",
                    [](const Text& text, char* to) { LCopyUTF8FromUTF32(to, text.utf32.data(), 0); }});
    return ways;
}

struct Direction {
    const char* name;
    std::vector<Way> (*ways)();
};

constexpr Direction kDirections[] = {
    {"UTF-8 to UTF-32", DecodeTo32}, {"UTF-8 to 16 bits", DecodeTo16}, {"UTF-32 to UTF-8", EncodeFrom32}};

Case CharsetsCase(const Direction& direction, const char* textName, std::shared_ptr<const Text> text,
                  bool isShort) {
    Case result{std::string("charsets/") + direction.name + ", " + textName,
                isShort ? "ns" : "GB/s",
                isShort ? Better::Lower : Better::Higher,
                {},
                {0.8}};
    const auto target = std::make_shared<std::vector<char>>(4 * text->utf8.size() + 8);
    for (const Way& way : direction.ways())
        result.rows.push_back({way.name,
                               [way, text, target, isShort] {
                                   const auto work = [&] {
                                       way.convert(*text, target->data());
                                       keep(*target->data());
                                   };
                                   return isShort ? nanosecondsPerCall(work)
                                                  : gigabytesPerSecond(text->utf8.size(), work);
                               },
                               way.name.starts_with('L') ? Whose::Ours : Whose::Others});
    return result;
}

// ---- Walks ----

std::size_t CountByteWise(const char* text) {
    std::size_t count = 0;
    for (; *text != 0; ++text)
        count += (*text & 0xC0) != 0x80;
    return count;
}

using Walk = std::function<std::size_t(const char*)>;

Row WalkRow(const char* name, std::shared_ptr<const Text> text, Walk walk, Whose whose = Whose::Ours) {
    return {name,
            [=] { return gigabytesPerSecond(text->utf8.size(), [&] { keep(walk(text->utf8.c_str())); }); },
            whose};
}

void AddWalks(std::vector<Case>& cases, const char* textName, std::shared_ptr<const Text> text) {
    const std::size_t count = text->utf32.size() - 1;
    const std::size_t size = text->utf8.size();
    const auto wide = std::make_shared<std::vector<wchar_t>>(text->utf32.size());
    cases.push_back({std::string("charsets/walk over UTF-8, ") + textName,
                     "GB/s",
                     Better::Higher,
                     {WalkRow("byte-wise loop", text, CountByteWise, Whose::Others),
                      WalkRow("utf8strlen", text, [](const char* s) { return utf8strlen(s); }),
                      WalkRow("LCharsetsUTF8CharIndexToByteIndex", text,
                              [=](const char* s) { return LCharsetsUTF8CharIndexToByteIndex(s, count); }),
                      WalkRow("LCharsetsUTF8ByteIndexToCharIndex", text,
                              [=](const char* s) { return LCharsetsUTF8ByteIndexToCharIndex(s, size); })},
                     {0.8}});
    cases.push_back(
        {std::string("charsets/validate UTF-8, ") + textName,
         "GB/s",
         Better::Higher,
         {WalkRow(
              "byte-wise loop, decoding", text,
              [=](const char* s) { return DecodeByteWise(wide->data(), s); }, Whose::Others),
          WalkRow("LCharsetsIsUTF8", text, [](const char* s) { return std::size_t{LCharsetsIsUTF8(s)}; })},
         {0.8}});
}

const Register charsets{[](std::vector<Case>& cases) {
    for (const Script& script : kScripts)
        AddWalks(cases, script.name, std::make_shared<Text>(MakeText(script, kTextBytes)));
    for (const Direction& direction : kDirections)
        for (const Script& script : kScripts)
            cases.push_back(CharsetsCase(direction, script.name,
                                         std::make_shared<Text>(MakeText(script, kTextBytes)), false));
    Text name;
    name.utf8 = "Caf\xC3\xA9 Preferences2.plist";
    name.utf32.resize(name.utf8.size() + 1);
    LCopyUTF32FromUTF8(name.utf32.data(), name.utf8.c_str(), name.utf32.size());
    name.utf32.resize(std::wcslen(name.utf32.data()) + 1);
    for (const Direction& direction : kDirections)
        cases.push_back(CharsetsCase(direction, "24 bytes", std::make_shared<Text>(name), true));
}};

} // namespace
} // namespace bench
