#include "threads/LQueuedNotify.h"

#include <cstring>

void LThreadQueuedNotify::PostQueueNotify() {
    runner.RunOnMainThread(new LThreadQueuedNotifyData(*this));
}

bool LQueuedNotifyDataHandler::PostNotifyFromSender(unsigned int dwCode, const void* pData,
                                                    unsigned long dwSize) {
    return runner.RunOnMainThread(new LQueuedNotifyDataHandlerData(*this, dwCode, pData, dwSize));
}

LQueuedNotifyDataHandlerData::LQueuedNotifyDataHandlerData(LQueuedNotifyDataHandler& receiver,
                                                           unsigned int dwNotifyCode, const void* pSource,
                                                           unsigned long dwSourceSize)
    : handler(receiver), dwCode(dwNotifyCode), dwSize(dwSourceSize) {
    if (pSource == nullptr)
        return;
    pData.reset(new unsigned char[dwSize]);
    std::memcpy(pData.get(), pSource, dwSize);
}
