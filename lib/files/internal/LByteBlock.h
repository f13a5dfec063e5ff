// Sixteen bytes at once, looked through for two characters: lines' ends and separators of paths. Internal to this
// folder.
//
// Thread-safety: as a plain value.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>

class LByteBlock {
public:
    static constexpr unsigned long kSize = 16;

    explicit LByteBlock(const char* pBytes) { std::memcpy(&bytes, pBytes, kSize); }

    void Store(char* pTo) const { std::memcpy(pTo, &bytes, kSize); }

    // Which bytes are one of both: four bits a byte, all set or none. Of every pair the middle bits are kept.
    std::uint64_t Find(char one, char other) const {
        const auto pairs = reinterpret_cast<Pairs>((bytes == static_cast<unsigned char>(one)) |
                                                   (bytes == static_cast<unsigned char>(other)));
        return std::bit_cast<std::uint64_t>(__builtin_convertvector(pairs >> 4, Half));
    }

    // Of what was found: the bytes before the first one, and behind the last one.
    static unsigned long CountBefore(std::uint64_t qwFound) {
        return static_cast<unsigned long>(kLittle ? std::countr_zero(qwFound) : std::countl_zero(qwFound)) /
               4;
    }
    static unsigned long CountBehind(std::uint64_t qwFound) {
        return static_cast<unsigned long>(kLittle ? std::countl_zero(qwFound) : std::countr_zero(qwFound)) /
               4;
    }

private:
    typedef unsigned char Bytes __attribute__((vector_size(kSize)));
    typedef std::uint16_t Pairs __attribute__((vector_size(kSize)));
    typedef unsigned char Half __attribute__((vector_size(kSize / 2)));
    static constexpr bool kLittle = std::endian::native == std::endian::little;

    Bytes bytes;
};
