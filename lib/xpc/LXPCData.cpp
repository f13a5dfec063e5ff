#include "xpc/LXPCData.h"

#include <climits>
#include <cmath>
#include <limits>
#include <memory>
#include <port/bsd.h>

#include "xpc/internal/LXPCHandles.h"

namespace {

// What an item takes from the dictionary for one key.
struct ReadValue {
    long nValue = 0;
    unsigned long dwSize = 0;
};

template <typename T>
const T* LentPointer(const LXPCData& item) {
    return LXPCIsHandle(item.nValue) ? reinterpret_cast<const T*>(item.nValue) : nullptr;
}

void SetData(xpc_object_t pDictionary, const LXPCData& item) {
    if (item.dwSize == 0)
        xpc_dictionary_set_data(pDictionary, item.szName, "", 0);
    else if (const void* pBytes = LentPointer<void>(item))
        xpc_dictionary_set_data(pDictionary, item.szName, pBytes, item.dwSize);
}

void SetDescriptor(xpc_object_t pDictionary, const LXPCData& item) {
    // Narrowing must not turn a number that is no descriptor into one.
    if (item.nValue >= 0 && item.nValue <= INT_MAX)
        xpc_dictionary_set_fd(pDictionary, item.szName, static_cast<int>(item.nValue));
}

void SetItem(xpc_object_t pDictionary, const LXPCData& item) {
    switch (item.eType) {
    case LXPCDataTypeBool:
        return xpc_dictionary_set_bool(pDictionary, item.szName, item.nValue != 0);
    case LXPCDataTypeInt64:
        return xpc_dictionary_set_int64(pDictionary, item.szName, item.nValue);
    case LXPCDataTypeUInt64:
        return xpc_dictionary_set_uint64(pDictionary, item.szName, static_cast<std::uint64_t>(item.nValue));
    case LXPCDataTypeDouble:
        return xpc_dictionary_set_double(pDictionary, item.szName, static_cast<double>(item.nValue));
    case LXPCDataTypeDate:
        return xpc_dictionary_set_date(pDictionary, item.szName, item.nValue);
    case LXPCDataTypeData:
        return SetData(pDictionary, item);
    case LXPCDataTypeUUID:
        if (const auto* pUuid = LentPointer<std::uint8_t>(item))
            xpc_dictionary_set_uuid(pDictionary, item.szName, pUuid);
        return;
    case LXPCDataTypeString:
        if (const char* szText = LentPointer<char>(item))
            xpc_dictionary_set_string(pDictionary, item.szName, szText);
        return;
    case LXPCDataTypeFD:
        return SetDescriptor(pDictionary, item);
    case LXPCDataTypeNone:
        return;
    }
}

// The ends of long are no doubles: 2^63 is the first double above them.
long TruncateToLong(double value) {
    constexpr double kAbove = 9223372036854775808.0;
    static_assert(sizeof(long) == 8, "the bound is that of 64 bits");
    if (std::isnan(value))
        return 0;
    if (value >= kAbove)
        return std::numeric_limits<long>::max();
    if (value < -kAbove)
        return std::numeric_limits<long>::min();
    return static_cast<long>(value);
}

// False for a declared type that cannot be read.
bool GetValue(xpc_object_t pDictionary, const LXPCDictionaryKeyListable& key, ReadValue& value) {
    switch (key.eType) {
    case LXPCDataTypeBool:
        value.nValue = xpc_dictionary_get_bool(pDictionary, key.szName) ? 1 : 0;
        return true;
    case LXPCDataTypeInt64:
        value.nValue = static_cast<long>(xpc_dictionary_get_int64(pDictionary, key.szName));
        return true;
    case LXPCDataTypeUInt64:
        value.nValue = static_cast<long>(xpc_dictionary_get_uint64(pDictionary, key.szName));
        return true;
    case LXPCDataTypeDouble:
        value.nValue = TruncateToLong(xpc_dictionary_get_double(pDictionary, key.szName));
        return true;
    case LXPCDataTypeDate:
        value.nValue = static_cast<long>(xpc_dictionary_get_date(pDictionary, key.szName));
        return true;
    case LXPCDataTypeData:
        value.nValue = LXPCHandle(xpc_dictionary_get_data(pDictionary, key.szName, &value.dwSize));
        return true;
    case LXPCDataTypeUUID:
        value.nValue = LXPCHandle(xpc_dictionary_get_uuid(pDictionary, key.szName));
        return true;
    case LXPCDataTypeString:
        value.nValue = LXPCHandle(xpc_dictionary_get_string(pDictionary, key.szName));
        return true;
    case LXPCDataTypeFD:
        value.nValue = xpc_dictionary_dup_fd(pDictionary, key.szName);
        return true;
    case LXPCDataTypeNone:
        return false;
    }
    return false;
}

} // namespace

LXPCDictionaryKeyListable::LXPCDictionaryKeyListable(const char* szKey, LXPCDataType eKeyType)
    : eType(eKeyType) {
    strlcpy(szName, szKey, sizeof(szName));
}

void SetXPCDictionary(void* pDictionary, const LList<LXPCDataListable>& loItems) {
    for (const LXPCDataListable* pItem = loItems.GetFirst(); pItem != nullptr; pItem = pItem->pNext)
        SetItem(pDictionary, *pItem);
}

void GetXPCDictionary(void* pDictionary, LList<LXPCDictionaryKeyListable>& loKeys,
                      LList<LXPCDataListable>& loItems) {
    for (const LXPCDictionaryKeyListable* pKey = loKeys.GetFirst(); pKey != nullptr; pKey = pKey->pNext) {
        ReadValue value;
        // Presence is asked first: a getter's neutral answer does not tell an absent key from a mismatch.
        if (xpc_dictionary_get_value(pDictionary, pKey->szName) != nullptr &&
            GetValue(pDictionary, *pKey, value))
            loItems.AddHead(CreateXPCData(*pKey, value.nValue, value.dwSize));
    }
}

LXPCDataListable* CreateXPCData(const LXPCDictionaryKeyListable& key, long nValue, unsigned long dwSize) {
    auto pItem = std::make_unique<LXPCDataListable>();
    strlcpy(pItem->szName, key.szName, sizeof(pItem->szName));
    pItem->eType = key.eType;
    pItem->nValue = nValue;
    pItem->dwSize = dwSize;
    return pItem.release();
}
