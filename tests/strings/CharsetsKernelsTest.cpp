#include "strings/CharsetsOracle.h"
#include "strings/LCharsetsKernels.h"

#include <cstring>
#include <gtest/gtest.h>
#include <iconv.h>

namespace {

std::vector<const LCharsetsKernels*> AllKernels() {
    std::vector<const LCharsetsKernels*> all;
    for (const auto* const* walk = LCharsetsKernelsHere(); *walk != nullptr; ++walk)
        all.push_back(*walk);
    return all;
}

template <typename TUnit>
auto DecodeWith(const LCharsetsKernels& kernels, TUnit* to, const char* from, std::size_t bytes) {
    if constexpr (sizeof(TUnit) == 2)
        return kernels.DecodeTo16(to, from, bytes);
    else
        return kernels.DecodeTo32(to, from, bytes);
}

template <typename TUnit>
auto EncodeWith(const LCharsetsKernels& kernels, char* to, std::size_t room, const TUnit* from,
                std::size_t units) {
    if constexpr (sizeof(TUnit) == 2)
        return kernels.EncodeFrom16(to, room, from, units);
    else
        return kernels.EncodeFrom32(to, room, from, units);
}

// One value in UTF-8, surrogates included, by the bits of the format.
std::string OracleEncode(std::uint32_t value) {
    const auto byte = [value](unsigned mark, unsigned shift, unsigned bits) {
        return static_cast<char>(mark | (value >> shift & bits));
    };
    if (value < 0x80)
        return {byte(0, 0, 0x7F)};
    if (value < 0x800)
        return {byte(0xC0, 6, 0x1F), byte(0x80, 0, 0x3F)};
    if (value < 0x10000)
        return {byte(0xE0, 12, 0x0F), byte(0x80, 6, 0x3F), byte(0x80, 0, 0x3F)};
    return {byte(0xF0, 18, 7), byte(0x80, 12, 0x3F), byte(0x80, 6, 0x3F), byte(0x80, 0, 0x3F)};
}

template <typename TUnit>
class Kernels : public testing::Test {
protected:
    // Decodes the text between guard pages and compares with the oracle.
    void CheckDecoding(std::string_view text) {
        const OracleDecoded expected = OracleDecode(text);
        char* const source = _source.Last<char>(text.size());
        std::memcpy(source, text.data(), text.size());
        for (const LCharsetsKernels* kernels : AllKernels()) {
            TUnit* const target = _target.Last<TUnit>(text.size());
            const LCharsetsDecoded done = DecodeWith(*kernels, target, source, text.size());
            bool same = done.nRead == expected.read && done.nWritten == expected.values.size();
            for (std::size_t i = 0; same && i < done.nWritten; ++i)
                same = target[i] == static_cast<TUnit>(expected.values[i]);
            ASSERT_TRUE(same) << kernels->szName << " on " << testing::PrintToString(text) << ": read "
                              << done.nRead << " of " << expected.read << ", wrote " << done.nWritten
                              << " of " << expected.values.size();
        }
    }

    // Encodes the units between guard pages, with just this room, and compares with the oracle.
    void CheckEncoding(const std::vector<TUnit>& units, std::size_t room) {
        std::string expected;
        std::size_t read = 0;
        bool replaced = false;
        for (; read < units.size(); ++read) {
            std::uint32_t value = 0;
            std::memcpy(&value, &units[read], sizeof(TUnit));
            const std::string sequence = OracleEncode(value > 0x10FFFF ? 0xFFFD : value);
            if (expected.size() + sequence.size() > room)
                break;
            expected += sequence;
            replaced |= value > 0x10FFFF;
        }
        TUnit* const source = _source.Last<TUnit>(units.size());
        std::copy(units.begin(), units.end(), source);
        for (const LCharsetsKernels* kernels : AllKernels()) {
            char* const target = _target.Last<char>(room);
            const LCharsetsEncoded done = EncodeWith(*kernels, target, room, source, units.size());
            ASSERT_EQ(std::string_view(target, done.nWritten), expected)
                << kernels->szName << " room " << room;
            ASSERT_EQ(done.nRead, read) << kernels->szName << " room " << room;
            ASSERT_EQ(done.bReplaced, replaced) << kernels->szName << " room " << room;
        }
    }

    GuardedMemory _source, _target;
};

using Units = testing::Types<wchar_t, unsigned short>;
TYPED_TEST_SUITE(Kernels, Units);

TYPED_TEST(Kernels, DecodeRandomTextCutEverywhere) {
    std::mt19937 random(20140214);
    for (int round = 0; round < 400; ++round) {
        SCOPED_TRACE(round);
        const std::string text = RandomText(random, random() % 200);
        for (std::size_t bytes = 0; bytes <= text.size(); ++bytes)
            this->CheckDecoding(std::string_view(text).substr(0, bytes));
        if (this->HasFatalFailure())
            return;
    }
}

// Every pair of bytes that does not begin with ASCII, and what can follow it, at every place where a vector may begin or end.
TYPED_TEST(Kernels, DecodeEveryPairOfBytes) {
    for (const std::size_t before : {0UL, 30UL, 61UL})
        for (unsigned pair = 0x8001; pair < 0x10000; pair += (pair & 0xFF) == 0xFF ? 2 : 1) {
            std::string text(before, 'a');
            text += static_cast<char>(pair >> 8);
            text += static_cast<char>(pair & 0xFF);
            text += "\x80\xBF";
            text.append(72 - before, 'z');
            this->CheckDecoding(text);
            if (this->HasFatalFailure())
                return;
        }
}

TYPED_TEST(Kernels, EncodeRandomUnitsIntoEveryRoom) {
    std::mt19937 random(4711);
    const std::uint32_t highest[] = {0x7F, 0xFF, 0x7FF, 0xFFFF, 0x10FFFF, 0x110400, 0xFFFFFFFF};
    for (unsigned round = 0; round < 140; ++round) {
        SCOPED_TRACE(round);
        const std::uint32_t top = highest[round % std::size(highest)];
        std::vector<TypeParam> units(random() % 80);
        for (TypeParam& unit : units)
            do
                unit = static_cast<TypeParam>(random() % 3 != 0 ? 'a' : random() % top + 1);
            while (unit == 0);
        for (std::size_t room = 0; room <= 4 * units.size(); ++room)
            this->CheckEncoding(units, room);
        if (this->HasFatalFailure())
            return;
    }
}

// The host's converter on all characters there are, in both directions.
TEST(KernelsOnAllCharacters, AgreeWithTheHost) {
    std::vector<wchar_t> all;
    for (wchar_t value = 1; value <= 0x10FFFF; ++value)
        if (value < 0xD800 || value > 0xDFFF)
            all.push_back(value);
    std::string expected(all.size() * 4, '\0');
    iconv_t host = iconv_open("UTF-8", "WCHAR_T");
    char* in = reinterpret_cast<char*>(all.data());
    char* out = expected.data();
    std::size_t inBytes = all.size() * sizeof(wchar_t);
    std::size_t room = expected.size();
    ASSERT_EQ(iconv(host, &in, &inBytes, &out, &room), 0U);
    iconv_close(host);
    expected.resize(expected.size() - room);

    for (const LCharsetsKernels* kernels : AllKernels()) {
        SCOPED_TRACE(kernels->szName);
        std::string text(all.size() * 4, '\0');
        const LCharsetsEncoded encoded =
            kernels->EncodeFrom32(text.data(), text.size(), all.data(), all.size());
        text.resize(encoded.nWritten);
        EXPECT_TRUE(text == expected);
        std::vector<wchar_t> back(text.size());
        back.resize(kernels->DecodeTo32(back.data(), text.data(), text.size()).nWritten);
        EXPECT_TRUE(back == all);
    }
}

} // namespace
