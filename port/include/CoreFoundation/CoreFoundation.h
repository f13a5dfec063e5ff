// The platform's counted objects: strings, URLs, bundles, property lists and the values they hold.
//
// Thread-safety: immutable objects may be used by any number of threads at once, and CFRetain and CFRelease
// are atomic. A mutable dictionary is guarded by its owner while it changes.
//
// Ownership: what a function with "Create" or "Copy" in its name returns belongs to the caller, who gives it
// back with CFRelease. Everything else stays with the object it was asked of and lives as long as that does.
// Containers retain what they hold. Allocators are accepted for the sake of the signatures and ignored.
//
// Where nothing else is said, a null object is the caller's error, and a function that returns an object
// returns null when it fails. Nothing blocks but the functions of CFBundle and CFURLCreate..., which ask the
// file system.
#pragma once

#include <cstdint>

using Boolean = unsigned char;
using UInt8 = std::uint8_t;
using UniChar = std::uint16_t;    // one UTF-16 unit in the host's byte order
using StringPtr = unsigned char*; // a length byte, then that many bytes
using CFIndex = long;
using CFTypeID = unsigned long;
using CFOptionFlags = unsigned long;
using CFTypeRef = const void*;
using CFAllocatorRef = const struct __CFAllocator*;

struct CFRange {
    CFIndex location;
    CFIndex length;
};

constexpr CFRange CFRangeMake(CFIndex location, CFIndex length) {
    return {location, length};
}

constexpr CFAllocatorRef kCFAllocatorDefault = nullptr;

using CFArrayRef = const struct __CFArray*;
using CFBooleanRef = const struct __CFBoolean*;
using CFBundleRef = struct __CFBundle*;
using CFDataRef = const struct __CFData*;
using CFDateRef = const struct __CFDate*;
using CFDictionaryRef = const struct __CFDictionary*;
using CFMutableDictionaryRef = struct __CFDictionary*;
using CFErrorRef = struct __CFError*;
using CFLocaleRef = const struct __CFLocale*;
using CFNumberRef = const struct __CFNumber*;
using CFStringRef = const struct __CFString*;
using CFURLRef = const struct __CFURL*;
using CFPropertyListRef =
    CFTypeRef; // a string, data, number, boolean or date, or an array or dictionary of these

#pragma GCC visibility push(default)

// --- Every object ---------------------------------------------------------------------------------------

// Returns the object itself.
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);

// The type of an object, to be compared with the CF...GetTypeID of a type before a cast.
CFTypeID CFGetTypeID(CFTypeRef object);

// True when both are of one type and of equal value; containers are compared element by element. A number
// equals another of the same value, whole or not: 1 equals 1.0. Bundles and errors equal only themselves.
Boolean CFEqual(CFTypeRef first, CFTypeRef second);

// --- Strings --------------------------------------------------------------------------------------------
// Sequences of UTF-16 units; lengths count units, so a character outside the basic plane counts two. Zero
// units and lone surrogates are kept.

using CFStringEncoding = std::uint32_t;

constexpr CFStringEncoding kCFStringEncodingUnicode = 0x0100; // UTF-16, host's byte order, no byte-order mark
constexpr CFStringEncoding kCFStringEncodingISOLatin1 = 0x0201;
constexpr CFStringEncoding kCFStringEncodingWindowsLatin1 = 0x0500; // 81 8D 8F 90 9D are U+0081 and so on
constexpr CFStringEncoding kCFStringEncodingUTF8 = 0x08000100;

CFTypeID CFStringGetTypeID();

// The encoding of file names: UTF-8.
CFStringEncoding CFStringGetSystemEncoding();

// From `length` bytes. Null when they are ill-formed in the encoding (UTF-8: overlong forms, surrogates,
// values above 10FFFF and cut sequences; UTF-16: an odd length) or the encoding is none of the above.
// A byte-order mark is a character like any other, whatever `isExternal` says.
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternal);

// From a terminated text in one of the 8-bit encodings, under the same rules.
CFStringRef CFStringCreateWithCString(CFAllocatorRef allocator, const char* text, CFStringEncoding encoding);

// From `length` units, whatever they are.
CFStringRef CFStringCreateWithCharacters(CFAllocatorRef allocator, const UniChar* units, CFIndex length);

// A constant string of an ASCII literal. It is never destroyed and need not be released.
#define CFSTR(literal)                                                                                       \
    ([]() -> CFStringRef {                                                                                   \
        static const CFStringRef string =                                                                    \
            CFStringCreateWithCString(kCFAllocatorDefault, "" literal, kCFStringEncodingUTF8);               \
        return string;                                                                                       \
    }())

CFIndex CFStringGetLength(CFStringRef string);

// Copies the units of the range, which lies inside the string.
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);

// Writes the text and a terminator of one byte (for UTF-16: two; n units need 2n + 2 bytes) into `size`
// bytes, which need no alignment. False when it does not fit or the encoding cannot hold a character (lone
// surrogates in UTF-8, anything above U+00FF in ISO Latin-1): the buffer then holds the empty string, if it
// has room for the terminator.
Boolean CFStringGetCString(CFStringRef string, char* buffer, CFIndex size, CFStringEncoding encoding);

// Writes a length byte and the text into `size` bytes. False when the text has more than size - 1 or 255
// bytes or cannot be converted: the length byte is then 0, if it has room.
Boolean CFStringGetPascalString(CFStringRef string, StringPtr buffer, CFIndex size,
                                CFStringEncoding encoding);

// --- Data, numbers, booleans, dates, errors ---------------------------------------------------------------

CFTypeID CFDataGetTypeID();
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;

CFTypeID CFBooleanGetTypeID();
Boolean CFBooleanGetValue(CFBooleanRef boolean);

enum CFNumberType : CFIndex {
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat64Type = 6,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberDoubleType = 13,
};

// Numbers keep sign and width: a whole number of a property list may also lie between 2^63 and 2^64 - 1.
CFTypeID CFNumberGetTypeID();

// Stores the number as the C type that `type` names. False when the type cannot hold the value as it is: the
// nearest value it can hold is stored then (fractions are dropped, NaN becomes 0).
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);

using CFAbsoluteTime = double; // seconds since 2001-01-01 00:00:00 UTC

CFStringRef CFErrorCopyDescription(CFErrorRef error); // one line, never null

// --- Containers -----------------------------------------------------------------------------------------
// The call-backs say what the platform would do with raw pointers; here elements are always objects.

struct CFArrayCallBacks;
struct CFDictionaryKeyCallBacks;
struct CFDictionaryValueCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

CFTypeID CFArrayGetTypeID();
CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex count,
                         const CFArrayCallBacks* callBacks);
CFIndex CFArrayGetCount(CFArrayRef array);
CFTypeRef CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index); // null outside the array

// Keys are strings. Of two equal keys the later value stays.
CFTypeID CFDictionaryGetTypeID();
CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys, const void** values,
                                   CFIndex count, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);

// The value under an equal key, or null.
CFTypeRef CFDictionaryGetValue(CFDictionaryRef dictionary, const void* key);

// The capacity is ignored.
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);
void CFDictionaryRemoveValue(CFMutableDictionaryRef dictionary, const void* key); // nothing when absent

// --- Property lists -------------------------------------------------------------------------------------

using CFPropertyListFormat = CFIndex;
constexpr CFPropertyListFormat kCFPropertyListXMLFormat_v1_0 = 100;
constexpr CFPropertyListFormat kCFPropertyListBinaryFormat_v1_0 = 200;
constexpr CFOptionFlags kCFPropertyListImmutable = 0;
constexpr CFIndex kCFPropertyListReadCorruptError = 3840;
constexpr CFIndex kCFPropertyListWriteStreamError = 3851;

// Reads an XML or a binary list; `format` (may be null) tells which. All objects are immutable, whatever the
// options. Null on anything malformed or beyond the limits (4 MiB, 64 levels, 100,000 values counted as often
// as they are referred to, 1 MiB a string): *error (may be null) is then a new error, which the caller
// releases and which names the line or the byte offset; otherwise *error is null.
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error);

// Writes the canonical XML form: UTF-8, keys ascending by code point, so that equal lists give equal bytes.
// Null for another format, for an object that no list may hold, for characters that XML cannot hold, and for
// a list beyond the limits of reading; *error as above.
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef list,
                                   CFPropertyListFormat format, CFOptionFlags options, CFErrorRef* error);

// Whether the list could be written in that format.
Boolean CFPropertyListIsValid(CFPropertyListRef list, CFPropertyListFormat format);

// --- URLs of files --------------------------------------------------------------------------------------
// An absolute path and whether it is meant as a folder. Paths carry no trailing slash but for "/" itself.
// Nothing asks whether the file exists.

using CFURLPathStyle = CFIndex;
constexpr CFURLPathStyle kCFURLPOSIXPathStyle = 0;

// A relative path is made absolute against the working folder. Null for an empty path, and for text that
// names no file: a zero unit, a lone surrogate, another style.
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path, CFURLPathStyle style,
                                       Boolean isDirectory);

// The same from the bytes of a path, which need not be UTF-8.
CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                                 Boolean isDirectory);

Boolean CFURLHasDirectoryPath(CFURLRef url);
CFURLRef CFURLCopyAbsoluteURL(CFURLRef url);

// The path as text; null when its bytes are not UTF-8, or for another style.
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);

// The bytes of the path, terminated, into `size` bytes. False when they do not fit; the buffer is then the
// empty string, if size allows.
Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase, UInt8* buffer,
                                         CFIndex size);

// The folder that holds the file; "/" for "/".
CFURLRef CFURLCreateCopyDeletingLastPathComponent(CFAllocatorRef allocator, CFURLRef url);

// Null for "/" and for a name that is not UTF-8.
CFStringRef CFURLCopyLastPathComponent(CFURLRef url);

// --- Bundles --------------------------------------------------------------------------------------------
// A folder with Contents/Info.plist, Contents/MacOS and Contents/Resources. Info.plist is read once, when it
// is first asked for. One that is missing, broken, beyond the limits or no regular file means: no values.

extern const CFStringRef kCFBundleVersionKey;    // "CFBundleVersion"
extern const CFStringRef kCFBundleIdentifierKey; // "CFBundleIdentifier"
extern const CFStringRef kCFBundleNameKey;       // "CFBundleName"
extern const CFStringRef kCFBundleExecutableKey; // "CFBundleExecutable"

// Null when the URL names no existing folder. A folder without Info.plist is a bundle without values.
CFBundleRef CFBundleCreate(CFAllocatorRef allocator, CFURLRef url);

// The bundle of this process: X.app when the executable is X.app/Contents/MacOS/..., else the executable's
// folder, without values. Null only when the system does not tell the executable.
CFBundleRef CFBundleGetMainBundle();

CFURLRef CFBundleCopyBundleURL(CFBundleRef bundle);
CFURLRef CFBundleCopyResourcesDirectoryURL(CFBundleRef bundle); // for an unbundled executable its folder

// The program: the process's own for the main bundle, else Contents/MacOS/ with the name under
// "CFBundleExecutable", or without one the folder's name up to ".app". Null when that is no regular file, or
// the name is no plain file name. Whether it may be executed is another question.
CFURLRef CFBundleCopyExecutableURL(CFBundleRef bundle);

// Of any type, null when absent: test the type before a cast.
CFTypeRef CFBundleGetValueForInfoDictionaryKey(CFBundleRef bundle, CFStringRef key);
CFDictionaryRef CFBundleGetInfoDictionary(CFBundleRef bundle); // empty when there are no values
CFStringRef CFBundleGetIdentifier(CFBundleRef bundle);         // null when absent or no string

// --- Locale and preferences -----------------------------------------------------------------------------

// The user's locale, never null.
CFLocaleRef CFLocaleCopyCurrent();

// Such as "de_DE": the name that the environment has for messages (LC_ALL, LC_MESSAGES, LANG), without its
// character set; empty when it has none, or the C locale.
CFStringRef CFLocaleGetIdentifier(CFLocaleRef locale);

extern const CFStringRef kCFPreferencesAnyApplication;
extern const CFStringRef kCFPreferencesCurrentUser;
extern const CFStringRef kCFPreferencesAnyHost;

// The value that the user's settings have under a key, for the application of that identifier or for any
// application; its type is to be tested. Null when there is none. Reads the settings file anew: changes that
// have not been saved do not show.
CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef applicationID);

// The same; null for another user than the current one and another host than any.
CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID, CFStringRef userName,
                                         CFStringRef hostName);

#pragma GCC visibility pop
