// Every kernel against naive code, between pages nobody may touch.
#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsKernels.h"

#include <algorithm>
#include <bit>
#include <gtest/gtest.h>
#include <random>
#include <sys/mman.h>

namespace {

// The end of 64 KiB that a page nobody may touch follows.
char* GuardedEnd() {
    constexpr std::size_t size = 16 * 4096;
    void* const start =
        mmap(nullptr, size + 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    char* const end = static_cast<char*>(start) + size;
    mprotect(end, 4096, PROT_NONE);
    return end;
}

// The last `count` units before the end, none of them left from an earlier use.
template <typename TUnit>
TUnit* Before(char* end, std::size_t count) {
    TUnit* const units = reinterpret_cast<TUnit*>(end) - count;
    std::fill_n(units, count, TUnit{'#'});
    return units;
}

char* const sourceEnd = GuardedEnd();
char* const targetEnd = GuardedEnd();

// One value in UTF-8, surrogates included, by the bits of the format.
std::string OracleEncode(std::uint32_t value) {
    if (value < 0x80)
        return {static_cast<char>(value)};
    // The lead byte is marked by a bit for itself and one for each that follows, and a 0 behind them.
    unsigned following = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    std::string sequence = {static_cast<char>(0x7F80 >> following | value >> 6 * following)};
    while (following-- > 0)
        sequence += static_cast<char>(0x80 | (value >> 6 * following & 0x3F));
    return sequence;
}

// The length of the longest prefix of whole well-formed sequences: those that are the encoding of a character.
std::size_t OracleDecode(std::string_view text, std::vector<std::uint32_t>& values) {
    std::size_t read = 0;
    for (std::size_t size = 1; size <= 4 && read + size <= text.size(); ++size) {
        const std::string_view sequence = text.substr(read, size);
        std::uint32_t value = static_cast<unsigned char>(sequence[0]) & (size == 1 ? 0x7FU : 0x7FU >> size);
        for (const char byte : sequence.substr(1))
            value = value << 6 | (static_cast<unsigned char>(byte) & 0x3F);
        const bool surrogate = value >= 0xD800 && value <= 0xDFFF;
        if (value > 0x10FFFF || surrogate || OracleEncode(value) != sequence)
            continue;
        values.push_back(value);
        read += size;
        size = 0;
    }
    return read;
}

// Text in one of several scripts or in all of them, often damaged; no byte is 0.
std::string RandomText(std::mt19937& random, std::size_t bytes) {
    static const std::uint32_t letters[] = {'e',    0x7F,   0x80,   0xE9,   0x436,   0x7FF,   0x800,
                                            0x4E2D, 0xD7FF, 0xE000, 0xFFFF, 0x10000, 0x1F600, 0x10FFFF};
    constexpr std::string_view faults = "\x80 \xBF \xC0\x80 \xC1\xBF \xC3 \xE0\x9F\xBF \xE4\xB8 \xED\xA0\x80 "
                                        "\xF0\x8F\xBF\xBF \xF0\x9F\x98 \xF4\x90\x80\x80 \xF5\x80\x80\x80 "
                                        "\xF8\x88\x80\x80\x80 \xFF ";
    const auto below = [&random](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const std::size_t first = below(std::size(letters));
    const std::size_t span = 1 + below(std::size(letters) - first);
    const std::size_t spaces = 1 + below(12); // ASCII in between, from none to much
    std::string text;
    while (text.size() < bytes) {
        const std::uint32_t letter = letters[first + below(span)];
        const std::size_t lower = below(8) == 0 ? below(letter) : 0; // now and then anything up to the letter
        text += below(12) < spaces ? OracleEncode(letter - static_cast<std::uint32_t>(lower))
                                   : std::string(1 + below(20), 'a');
    }
    if (const std::size_t start = below(2 * faults.size()); start < faults.size())
        text.insert(below(text.size() + 1), faults.substr(start, faults.find(' ', start) - start));
    return text;
}

void CheckDecoding(std::string_view text) {
    std::vector<std::uint32_t> values;
    const std::size_t read = OracleDecode(text, values);
    char* const source = Before<char>(sourceEnd, text.size());
    std::copy(text.begin(), text.end(), source);
    const auto check = [&]<typename TUnit>(LCharsetsDecoded (*decode)(TUnit*, const char*, std::size_t)) {
        const std::vector<TUnit> expected(values.begin(), values.end());
        const bool more = read < text.size();
        TUnit* const target = Before<TUnit>(targetEnd, values.size() + more + 1);
        const LCharsetsDecoded done = decode(target, source, text.size());
        const std::vector<TUnit> written(target, target + done.nWritten);
        ASSERT_EQ(std::pair(done.nRead, written), std::pair(read, expected)) << testing::PrintToString(text);
    };
    for (auto* here = LCharsetsKernelsHere(); *here != nullptr; ++here) {
        SCOPED_TRACE((*here)->szName);
        ASSERT_NO_FATAL_FAILURE(check((*here)->DecodeTo32));
        ASSERT_NO_FATAL_FAILURE(check((*here)->DecodeTo16));
    }
}

template <typename TUnit>
void CheckEncoding(LCharsetsEncoded (*encode)(char*, std::size_t, const TUnit*, std::size_t),
                   const std::vector<TUnit>& units, std::size_t room) {
    std::string expected;
    std::size_t read = 0;
    bool replaced = false;
    for (; read < units.size(); ++read) {
        const auto value = static_cast<std::uint32_t>(units[read]);
        const std::string sequence = OracleEncode(value > 0x10FFFF ? 0xFFFD : value);
        if (expected.size() + sequence.size() > room)
            break;
        expected += sequence;
        replaced |= value > 0x10FFFF;
    }
    TUnit* const source = Before<TUnit>(sourceEnd, units.size());
    std::copy(units.begin(), units.end(), source);
    char* const target = Before<char>(targetEnd, room);
    const LCharsetsEncoded done = encode(target, room, source, units.size());
    ASSERT_EQ(std::tuple(std::string(target, done.nWritten), done.nRead, done.bReplaced),
              std::tuple(expected, read, replaced))
        << testing::PrintToString(units) << " room " << room;
}

TEST(CharsetsKernels, DecodeRandomTextCutEverywhere) {
    std::mt19937 random(20140214);
    for (int round = 0; round < 800; ++round) {
        const std::string text = RandomText(random, random() % 200);
        for (std::size_t bytes = 0; bytes <= text.size(); ++bytes)
            ASSERT_NO_FATAL_FAILURE(CheckDecoding(std::string_view(text).substr(0, bytes)));
    }
}

// Every pair of bytes that does not begin with ASCII, and what can follow it, at every place where a vector
// may begin or end.
TEST(CharsetsKernels, DecodeEveryPairOfBytes) {
    for (const std::size_t before : {0UL, 30UL, 61UL})
        for (unsigned pair = 0x8001; pair < 0x10000; pair += (pair & 0xFF) == 0xFF ? 2 : 1) {
            std::string text(100, 'a');
            text.replace(before, 4,
                         {static_cast<char>(pair >> 8), static_cast<char>(pair & 0xFF), '\x80', '\xBF'});
            ASSERT_NO_FATAL_FAILURE(CheckDecoding(text));
        }
}

TEST(CharsetsKernels, EncodeRandomUnitsIntoEveryRoom) {
    std::mt19937 random(4711);
    const std::uint32_t highest[] = {0x7F, 0xFF, 0x7FF, 0xFFFF, 0x10FFFF, 0x110000, 0xFFFFFFFF};
    for (unsigned round = 0; round < 140; ++round) {
        std::vector<wchar_t> units(random() % 80);
        const std::uint32_t top = highest[round % std::size(highest)];
        for (wchar_t& unit : units)
            unit = static_cast<wchar_t>(random() % 3 != 0 ? 'a' : top - random() % (round < 70 ? top : 2));
        std::vector<unsigned short> narrow(units.begin(), units.end());
        std::replace(narrow.begin(), narrow.end(), 0, 0xD800);
        for (auto* here = LCharsetsKernelsHere(); *here != nullptr; ++here)
            for (std::size_t room = 0; room <= 4 * units.size(); ++room) {
                SCOPED_TRACE((*here)->szName);
                ASSERT_NO_FATAL_FAILURE(CheckEncoding((*here)->EncodeFrom32, units, room));
                ASSERT_NO_FATAL_FAILURE(CheckEncoding((*here)->EncodeFrom16, narrow, room));
            }
    }
}

// Where characters begin, read from the lead bytes alone, and how much is sound; beyond what is walked over at
// once, too.
TEST(CharsetsKernels, CountCharactersOfRandomText) {
    std::mt19937 random(77);
    for (unsigned round = 0; round < 4000; ++round) {
        const std::string text = RandomText(random, random() % (round % 40 == 0 ? 13000 : 100));
        char* const source = Before<char>(sourceEnd, text.size() + 1);
        std::copy_n(text.c_str(), text.size() + 1, source);
        std::vector<std::size_t> bounds = {0};
        while (bounds.back() < text.size()) {
            const int ones = std::countl_one(static_cast<unsigned char>(text[bounds.back()]));
            bounds.push_back(bounds.back() + static_cast<std::size_t>(std::clamp(ones, 1, 6)));
        }
        const std::size_t chars = bounds.size() - 1, index = random() % (chars + 3);
        const std::size_t byte = random() % (text.size() + 9);
        const auto before = std::lower_bound(bounds.begin(), bounds.end() - 1, byte) - bounds.begin();
        ASSERT_EQ(utf8strlen(source), chars);
        ASSERT_EQ(LCharsetsUTF8ByteIndexToCharIndex(source, byte), static_cast<std::size_t>(before));
        ASSERT_EQ(LCharsetsUTF8CharIndexToByteIndex(source, index),
                  index < chars ? bounds[index] : text.size());
        char* const target = Before<char>(targetEnd, byte + 1);
        const auto beyond = std::upper_bound(bounds.begin(), bounds.end(), std::min(byte, text.size()));
        ASSERT_EQ(utf8strlcpy(target, source, byte + 1), beyond[-1]);
        ASSERT_EQ(target, text.substr(0, beyond[-1]));
        std::vector<std::uint32_t> values;
        const std::size_t sound = OracleDecode(text, values);
        ASSERT_EQ(LCharsetsUTF8SoundLength(source, text.size()), sound);
        ASSERT_EQ(LCharsetsIsUTF8(source), sound == text.size());
    }
}

} // namespace
