#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <new>
#include <port/no_memory.h>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// One call and no buffer: the line stays whole beside those of other threads.
void writeLine(const char* text) {
    const auto part = [](const char* piece) { return iovec{const_cast<char*>(piece), std::strlen(piece)}; };
    const iovec line[] = {part(program_invocation_short_name), part(": "), part(text), part("\n")};
    [[maybe_unused]] const ssize_t written = ::writev(STDERR_FILENO, line, static_cast<int>(std::size(line)));
}

} // namespace

void port_end_without_memory() noexcept {
    writeLine("out of memory");
    ::_exit(PORT_STATUS_NO_MEMORY);
}

void port_end_by_exception() noexcept {
    if (std::current_exception() == nullptr) {
        // Nothing could be thrown, perhaps because there is no memory for the exception itself.
        void* const volatile probe = std::malloc(1);
        if (probe == nullptr)
            port_end_without_memory();
        std::free(probe);
    } else {
        try {
            throw;
        } catch (const std::bad_alloc&) {
            port_end_without_memory();
        } catch (...) {
        }
    }
    writeLine("ended by an exception");
    std::abort();
}
