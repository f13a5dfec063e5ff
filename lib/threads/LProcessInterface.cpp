#include "threads/LProcessInterface.h"

#include <cstdarg>
#include <cstdio>

#include "base/LSleep.h"

void LProcessInterface::SetErrorF(const char* szFormat, ...) {
    char szText[LProcessTextSize];
    va_list arguments;
    va_start(arguments, szFormat);
    std::vsnprintf(szText, sizeof szText, szFormat, arguments);
    va_end(arguments);
    SetError(szText);
}

void LProcessInterface::SetStatusF(int nLine, const char* szFormat, ...) {
    char szText[LProcessTextSize];
    va_list arguments;
    va_start(arguments, szFormat);
    std::vsnprintf(szText, sizeof szText, szFormat, arguments);
    va_end(arguments);
    SetStatus(szText, nLine);
}

bool LProcessInterfaceVoid::ProcessWait(unsigned int timeout) {
    LSleepMilliseconds(timeout);
    return false;
}

int LProcessInterfaceVoid::ProcessWaitSignal(LSignalObjectRef signal, unsigned int timeout) {
    return signal.WaitSignal(timeout) ? LProcessWaitSignaled : LProcessWaitFailed;
}

int LProcessInterfaceVoid::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeout) {
    return group.Select(timeout) ? LProcessWaitSignaled : LProcessWaitFailed;
}
