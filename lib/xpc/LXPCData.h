// Messages as lists of typed items, the keys that a receiver declares, and the translation of both to and
// from XPC dictionaries.
//
// Thread-safety: the functions touch only their arguments.
//
// What `nValue` and `dwSize` of an item hold, by type:
//
//   Bool                  0 or 1 (sent as true when not 0)                    dwSize 0
//   Int64, UInt64, Date   the integer; sent sign-extended to 64 bits          dwSize 0
//   Double                a whole number; received values are truncated       dwSize 0
//                         toward zero, saturate at the ends of long, and
//                         a value that is no number reads 0
//   Data                  pointer to bytes                                    dwSize their count
//   UUID                  pointer to 16 bytes                                 dwSize 0
//   String                pointer to NUL-terminated UTF-8 text                dwSize 0
//   FD                    file descriptor                                     dwSize 0
//
// Names are cut at 259 bytes, possibly inside a character, by sender and receiver alike.
#pragma once

#include <cstdint>

#include "base/LLimits.h"
#include "base/LList.h"

#pragma GCC visibility push(default)

enum LXPCDataType : std::int32_t {
    LXPCDataTypeNone = 0, // neither sent nor received, like any value outside 1 to 9
    LXPCDataTypeBool = 1,
    LXPCDataTypeInt64 = 2,
    LXPCDataTypeUInt64 = 3,
    LXPCDataTypeDouble = 4,
    LXPCDataTypeDate = 5,
    LXPCDataTypeData = 6,
    LXPCDataTypeUUID = 7,
    LXPCDataTypeString = 8,
    LXPCDataTypeFD = 9
};

// One item of a message. A pointer in `nValue` is lent: whoever made the item keeps what it points to.
struct LXPCData {
    // Only the terminator of the name is written: an item is built for every value of every message.
    LXPCData() { szName[0] = '\0'; }

    char szName[LPathBufferSize];
    LXPCDataType eType = LXPCDataTypeNone;
    long nValue = -1;
    unsigned long dwSize = 0;
};

// An item in a list. A message, a reply and what is received are all `LList<LXPCDataListable>`.
struct LXPCDataListable : LXPCData {
    LXPCDataListable() = default;
    explicit LXPCDataListable(const LXPCData& data) : LXPCData(data) {}

    LXPCDataListable* pNext = nullptr;
};

// A key that a receiver understands, and the type in which its value is read.
struct LXPCDictionaryKeyListable {
    LXPCDictionaryKeyListable() { szName[0] = '\0'; }
    LXPCDictionaryKeyListable(const char* szKey, LXPCDataType eKeyType);

    char szName[LPathBufferSize];
    LXPCDataType eType = LXPCDataTypeNone;
    LXPCDictionaryKeyListable* pNext = nullptr;
};

// Writes the items into an XPC dictionary, in list order: of two items with one name the later wins.
//
// The dictionary takes its own copy of text, bytes and UUIDs and its own duplicate of a descriptor. Skipped
// without a word: items outside the types 1 to 9; text, UUIDs and data of a size other than 0 whose
// `nValue` is no pointer (0 or -1); descriptors that are none. Data of size 0 is written as empty data.
void SetXPCDictionary(void* pDictionary, const LList<LXPCDataListable>& loItems);

// Reads the declared keys out of an XPC dictionary and puts an item for each present one at the head of
// `loItems`. Keys that are absent, or declared with a type outside 1 to 9, give none.
//
// Both lists are built at the head, so a list that was empty holds the items in the order in which the keys
// were declared. A value of another type than the declared one gives an item all the same, with 0 for
// numbers and for the pointers of text, data and UUIDs, and -1 for a descriptor.
//
// Text, data and UUIDs point into the dictionary and live as long as it. A descriptor is a new one that
// belongs to the receiver: deleting the list does not close it, so a receiver that declares a descriptor key
// must look at its item and close it.
void GetXPCDictionary(void* pDictionary, LList<LXPCDictionaryKeyListable>& loKeys,
                      LList<LXPCDataListable>& loItems);

// A new item with the name and the type of the key, in no list; the caller owns it.
LXPCDataListable* CreateXPCData(const LXPCDictionaryKeyListable& key, long nValue, unsigned long dwSize);

#pragma GCC visibility pop
