// What the charset tests judge by: a decoder that looks well-formed sequences up in a list, random text, and
// memory that ends at a page nobody may touch.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <sys/mman.h>
#include <vector>

struct OracleDecoded {
    std::size_t read = 0;
    std::vector<std::uint32_t> values;
};

// The longest prefix of whole well-formed sequences.
OracleDecoded OracleDecode(std::string_view text);

// Text in one of several scripts or in all of them, often damaged; no byte is 0.
std::string RandomText(std::mt19937& random, std::size_t bytes);

class GuardedMemory {
public:
    GuardedMemory()
        : _start(static_cast<char*>(
              mmap(nullptr, kSize + kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
        mprotect(_start + kSize, kPage, PROT_NONE);
    }
    ~GuardedMemory() { munmap(_start, kSize + kPage); }
    GuardedMemory(const GuardedMemory&) = delete;
    GuardedMemory& operator=(const GuardedMemory&) = delete;

    // The last `count` units before the guard.
    template <typename T>
    T* Last(std::size_t count) {
        return reinterpret_cast<T*>(_start + kSize) - count;
    }

private:
    static constexpr std::size_t kPage = 4096;
    static constexpr std::size_t kSize = 16 * kPage;
    char* _start;
};
