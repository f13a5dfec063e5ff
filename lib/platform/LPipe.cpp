#include "platform/LPipe.h"

#include <port/pipe.h>
#include <port/shell.h>
#include <utility>

bool LPipeStream::_OpenStream(const char* szCommandLine, bool bReads) {
    Close();
    port::Pipe pipe;
    if (!pipe.open())
        return false;
    port::UniqueFd& own = bReads ? pipe.read : pipe.write;
    pStream = fdopen(own.get(), bReads ? "r" : "w");
    if (pStream == nullptr)
        return false;
    nDescriptor = own.release();
    process = port_start_shell(szCommandLine, pipe.read.get(), pipe.write.get());
    if (process > 0)
        return true;
    Close();
    return false;
}

int LPipeStream::Close() {
    if (pStream == nullptr)
        return -1;
    std::fclose(std::exchange(pStream, nullptr));
    nDescriptor = -1;
    return process > 0 ? port_wait(std::exchange(process, -1)) : -1;
}

LPipeInOut::~LPipeInOut() {
    readEnd.reset();
    writeEnd.reset();
    if (process > 0)
        port_let_go(process);
}

bool LPipeInOut::_Open(const char* szCommandLine, unsigned long, unsigned long) {
    Close();
    port::Pipe output;
    port::Pipe input;
    if (!output.open() || !input.open())
        return false;
    process = port_start_shell(szCommandLine, input.read.get(), output.write.get());
    if (process < 0)
        return false;
    readEnd = std::move(output.read);
    writeEnd = std::move(input.write);
    return true;
}

int LPipeInOut::Close() {
    readEnd.reset();
    writeEnd.reset();
    return process > 0 ? port_wait(std::exchange(process, -1)) : -1;
}
