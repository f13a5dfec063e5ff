// The system version, the file manager (references to existing files and folders, and file specifications of
// files by volume, parent folder and name), the processes of this user, and opening applications.
//
// Thread-safety: all functions may be called on any thread. Everything here is a value; nothing needs to be
// released. All functions but Gestalt ask the file system and may block with it.
//
// Folders are known by 32-bit node ids, which a process hands out as it meets them: 2 is "/", 1 the parent above
// it. Where the object of a reference or an id was removed or moved since it was last met, the answer is fnfErr, and
// so it is for a folder since which 65,536 others were met.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>

#pragma GCC visibility push(default)

using SInt16 = std::int16_t;
using SInt32 = std::int32_t;
using UInt16 = std::uint16_t;
using UInt32 = std::uint32_t;
using UInt64 = std::uint64_t;
using OSErr = SInt16;
using OSStatus = SInt32;
using Str255 = unsigned char[256]; // a length byte, then that many bytes
using OSType = UInt32;             // four characters, the first in the highest byte

constexpr OSErr noErr = 0;
constexpr OSErr nsvErr = -35; // no such volume
constexpr OSErr ioErr = -36;
constexpr OSErr bdNamErr = -37; // a name does not fit a Pascal string
constexpr OSErr fnfErr = -43;   // no such file or folder
constexpr OSErr dupFNErr = -48; // there is a file of that name
constexpr OSErr paramErr = -50;
constexpr OSErr memFullErr = -108;
constexpr OSErr procNotFound = -600;             // no such process, or none left
constexpr OSErr pathTooLongErr = -2110;          // a path does not fit its buffer
constexpr OSErr gestaltUndefSelectorErr = -5551; // a selector that is not known
constexpr OSErr gestaltUnknownErr = -5550;       // the answer cannot be had

// --- System version -------------------------------------------------------------------------------------

constexpr OSType gestaltSystemVersionMajor = 0x73797331; // 'sys1'
constexpr OSType gestaltSystemVersionMinor = 0x73797332; // 'sys2'

// Stores 10 and 9, or what PORT_SYSTEM_VERSION says in the environment: "major.minor", or "fail" (as does any
// other text) for a call that fails. *response is left as it was on failure.
OSErr Gestalt(OSType selector, SInt32* response);

// --- References -----------------------------------------------------------------------------------------

constexpr UInt32 kPortPathSize = 4096; // bytes of a path, terminator included

// An existing file or folder. The fields are the file manager's own.
struct FSRef {
    char path[kPortPathSize]; // absolute, without links
    UInt64 device;
    UInt64 inode;
};

// The file or folder at a UTF-8 path, links followed; a relative path starts at the working folder.
// isDirectory may be null. fnfErr when there is none; *ref is then unchanged.
OSStatus FSPathMakeRef(const UInt8* path, FSRef* ref, Boolean* isDirectory);

// Writes the absolute path, at most pathSize bytes with its terminator. pathTooLongErr when it does not fit:
// the buffer is then the empty string, if pathSize allows.
OSStatus FSRefMakePath(const FSRef* ref, UInt8* path, UInt32 pathSize);

// True when the URL names an existing file or folder; else *ref is unchanged.
Boolean CFURLGetFSRef(CFURLRef url, FSRef* ref);

// --- Catalogue ------------------------------------------------------------------------------------------

constexpr SInt32 fsRtParID = 1; // the parent of "/"
constexpr SInt32 fsRtDirID = 2; // "/"

// A file or folder, existing or to be, by its parent. The name is a Pascal string of at most 63 bytes.
struct FSSpec {
    SInt16 vRefNum; // -100 for the volume of "/", then down by one a mount point
    SInt32 parID;
    unsigned char name[64];
};

using FSCatalogInfoBitmap = UInt32;
constexpr FSCatalogInfoBitmap kFSCatInfoNone = 0;
constexpr FSCatalogInfoBitmap kFSCatInfoNodeFlags = 0x2;
constexpr FSCatalogInfoBitmap kFSCatInfoVolume = 0x4;
constexpr FSCatalogInfoBitmap kFSCatInfoParentDirID = 0x8;
constexpr FSCatalogInfoBitmap kFSCatInfoNodeID = 0x10;
constexpr UInt16 kFSNodeIsDirectoryMask = 0x10;

// Only what was asked for is filled.
struct FSCatalogInfo {
    UInt16 nodeFlags; // kFSNodeIsDirectoryMask or 0
    SInt16 volume;
    UInt32 parentDirID;
    UInt32 nodeID; // 0 of a file
};

struct HFSUniStr255 {
    UInt16 length;
    UniChar unicode[255];
};

// Fills `info` as `which` asks, and the file specification of the object. Either may be null; name and parent must
// be null, no caller asks for them here. Outputs are unchanged on failure; bdNamErr when a file specification is
// asked for and the name has more than 63 bytes.
OSErr FSGetCatalogInfo(const FSRef* ref, FSCatalogInfoBitmap which, FSCatalogInfo* info, HFSUniStr255* name,
                       FSSpec* spec, FSRef* parent);

// The parameter block of a question about a folder.
struct DirInfo {
    StringPtr ioNamePtr; // 256 bytes, filled with the folder's name; null when it is not wanted
    SInt16 ioVRefNum;    // not looked at: node ids are unique across volumes
    SInt16 ioFDirIndex;  // -1: the folder ioDrDirID itself; nothing else is answered
    SInt32 ioDrDirID;
    SInt32 ioDrParID; // filled with the parent's id
};

union CInfoPBRec {
    DirInfo dirInfo;
};

// The name and the parent of the folder ioDrDirID. "/" is called by its volume's name. fnfErr for an id that
// was not handed out; outputs are unchanged on failure.
OSErr PBGetCatInfoSync(CInfoPBRec* block);

// Copies a file, with what it consists of, into the folder under the new name. With
// kFSFileOperationOverwrite an existing file of that name is replaced, else dupFNErr. The new name is not null;
// `target`, which may be null, is filled on success. Blocks until the copy is done; the target is the old file
// or the whole new one at every moment. Folders are not copied: paramErr.
constexpr UInt32 kFSFileOperationDefaultOptions = 0;
constexpr UInt32 kFSFileOperationOverwrite = 1;
OSStatus FSCopyObjectSync(const FSRef* source, const FSRef* folder, CFStringRef name, FSRef* target,
                          UInt32 options);

// --- Volumes --------------------------------------------------------------------------------------------

constexpr UInt32 kFSVolInfoFSInfo = 0x1;

// Only what was asked for is filled.
struct FSVolumeInfo {
    UInt16 filesystemID;
};

// Of the volume with that number, which FSGetCatalogInfo told: what is mounted now where that volume was. Index is 0;
// the outputs but `info` are null; only kFSVolInfoFSInfo is answered. nsvErr when nothing is mounted there any more.
OSErr FSGetVolumeInfo(SInt16 volume, UInt32 index, SInt16* actualVolume, UInt32 which, FSVolumeInfo* info,
                      HFSUniStr255* name, FSRef* root);

// Bit numbers of the extended attributes. A volume that has none of them is on the network.
constexpr unsigned bIsOnInternalBus = 21;
constexpr unsigned bIsRemovable = 25;
constexpr unsigned bIsOnExternalBus = 27;

struct GetVolParmsInfoBuffer {
    SInt16 vMVersion;
    SInt16 vMPadding;
    SInt32 vMAttrib;
    UInt64 vMLocalHand;
    SInt32 vMServerAdr;
    SInt32 vMVolumeGrade;
    SInt16 vMForeignPrivID;
    SInt16 vMPadding2;
    UInt32 vMExtendedAttributes;
};
static_assert(sizeof(GetVolParmsInfoBuffer) == 32);

struct HIOParam {
    SInt16 ioVRefNum;
    void* ioBuffer;
    SInt32 ioReqCount; // bytes of the buffer
    SInt32 ioActCount; // bytes filled
};
union HParamBlockRec {
    HIOParam ioParam;
};

// Fills the buffer with a GetVolParmsInfoBuffer of the volume. nsvErr as above.
OSErr PBHGetVolParmsSync(HParamBlockRec* block);

constexpr SInt16 kOnSystemDisk = -32768;
constexpr OSType kVolumesFolderType = 0x737276C4; // where servers and other volumes are mounted

// The folder of that type; only the one above is known. fnfErr when there is none; nothing is created.
OSErr FSFindFolder(SInt16 volume, OSType folderType, Boolean create, FSRef* found);

// --- Processes --------------------------------------------------------------------------------------------
// The processes of this user, known by their ids.

struct ProcessSerialNumber {
    UInt32 highLongOfPSN; // 0
    UInt32 lowLongOfPSN;  // the process id, or kNoProcess
};
constexpr UInt32 kNoProcess = 0;

// The process behind this one in ascending order of ids; the first one for {0, kNoProcess}. procNotFound when
// there is none: *process is then {0, kNoProcess}. The first one is asked of the system together with those
// behind it, which are then told as they were, per thread.
OSErr GetNextProcess(ProcessSerialNumber* process);

OSErr GetCurrentProcess(ProcessSerialNumber* process);

struct ProcessInfoRec {
    OSType processType; // the two codes of the bundle's Contents/PkgInfo ("APPL????"); 0 without
    OSType processSignature;
};

// procNotFound when the process has ended or is another user's; *info is then unchanged.
OSErr GetProcessInformation(const ProcessSerialNumber* process, ProcessInfoRec* info);

// The bundle that the process was launched from; the executable file of one without a bundle. procNotFound, or
// fnfErr when that file is gone; *location is then unchanged.
OSStatus GetProcessBundleLocation(const ProcessSerialNumber* process, FSRef* location);

// --- Launch Services --------------------------------------------------------------------------------------

constexpr OSStatus kLSApplicationNotFoundErr = -10814;

// Starts the application bundle of the reference, unless a copy of it runs already; <AppKit/AppKit.h> says how.
// `launched` may be null. kLSApplicationNotFoundErr when it is none or does not start; *launched is then
// unchanged.
OSStatus LSOpenFSRef(const FSRef* ref, FSRef* launched);

#pragma GCC visibility pop
