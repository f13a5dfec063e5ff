// The static file, folder and path utilities of the library: operations on paths, on files and on whole trees.
//
// Thread-safety: all operations are reentrant and keep no state. Those on paths allocate nothing.
//
// A path is a terminated text of at most 259 bytes, UTF-8 where it is shown to people; nothing here depends on that.
// Every `szOut` is a buffer of LPathBufferSize bytes that the caller owns; it is always terminated, and what does not
// fit is cut, by bytes. Slash and backslash both separate on input; a separator that an operation adds is a slash.
// Comparisons are by bytes and regard case. The file part of a path is what follows its last separator; an extension
// is handled together with its dot. No pointer may be null unless an operation says so. `szOut` and the inputs do not
// overlap unless an operation says so. Of the operations on paths only GetHumanReadableDriveFromPath blocks.
#pragma once

#pragma GCC visibility push(default)

class LFile {
public:
    LFile() = delete;

    // szFolder, "/" when it lacks a separator at its end, szName, szExtension. At most 258 bytes of the
    // folder are taken; an empty folder adds no separator. szOut may be szFolder itself; a null name or
    // extension counts as empty. Returns how many bytes of name and extension were stored.
    static unsigned _MakeFilePath(char* szOut, const char* szFolder, const char* szName,
                                  const char* szExtension);

    // The path before its last separator: "/" for "/file", empty for "file". "/a/b/" gives "/a/b".
    static void _GetFolderFromPath(char* szOut, const char* szPath);

    // The first component with what leads it: "/Users" of "/Users/me", "D:" of "D:\x", "\\server" of a share.
    // Separators at the first two positions do not end it, so "a/b" stays whole.
    static void _GetBaseFolderFromPath(char* szOut, const char* szPath);

    // The file part; empty when the path ends with a separator. The first component of 259 bytes or more ends
    // the scan and is the result, cut to 259.
    static void _GetFileFromPath(char* szOut, const char* szPath);

    // The file part without its extension; a dot at its first position belongs to the name.
    static void _GetFileNameFromPath(char* szOut, const char* szPath);

    // From the last dot of the file part on, a leading dot included (".profile" of "/a/.profile"); empty
    // without one.
    static void _GetFileExtensionFromPath(char* szOut, const char* szPath);

    // The path with its extension replaced, or added when it has none. Only a dot at position 0 of the whole
    // path is spared: "/x/.profile" with ".bak" gives "/x/.bak". A path of 259 bytes without an extension
    // gets none.
    static void _ApplyNewFileExtension(char* szOut, const char* szPath, const char* szNewExtension);

    // szRelative, read from the folder szBase, with szExtension appended. A path that begins with a separator
    // or has ":" in its first component is taken as it is. Leading "./" are skipped, and each leading "../"
    // takes a component off the base until that is shorter than two bytes; the rest is joined unchanged. ".."
    // without a separator behind it is a name. szOut may be szBase.
    static void MakeAbsoluteFilePath(char* szOut, const char* szBase, const char* szRelative,
                                     const char* szExtension);

    // The way from the folder szBase to szPath, with ".." and the last separator that both share for each step
    // up; szPath itself when both have no folder in common. A base that is the path itself without a separator
    // at its end is left and entered again: from /a/b to /a/b leads "../b". False with an empty szOut when the
    // way would need 261 bytes or more.
    static bool GetRelativePathFromAbsolutePath(char* szOut, const char* szBase, const char* szPath);

    // The way from the folder szBase, which is not empty, to szPath, where only "/" separates: the common
    // beginning is dropped and each "/" left in the base becomes "../". Where both part inside a component
    // the whole component counts as different. From /a/b to /a/b leads "../", to /a/b/ the empty way. Always true.
    static bool MakeRelativeFolder(char* szOut, const char* szBase, const char* szPath);

    // The same operation as MakeRelativeFolder.
    static bool MakeRelativeFilePath(char* szOut, const char* szBase, const char* szPath);

    // szName without control characters (1 to 31), both separators, double quotes and the characters *:<>?|.
    // szOut may be szName. True when something is left.
    static bool PreprocessName(const char* szName, char* szOut);

    // The same, but separators stay. True when something other than blanks is left.
    static bool PreprocessPath(const char* szPath, char* szOut);

    // True when the name is not empty and PreprocessName would drop nothing of it, however long it is.
    static bool IsFileValid(const char* szName);

    // szPath with "\" before every double quote and backquote, for use between double quotes in a shell
    // command line. Returns szOut. When only the "\" of a pair fits, the quote is dropped.
    static char* EscapeFilePath(const char* szPath, char* szOut);

    // True when the pattern matches the whole name: "?" matches one character, "*" any run. A "*" of the
    // pattern that meets a "*" of the name stands for that character alone: ("*", "*x") is false. Takes at
    // most the product of both lengths in time. Instantiated for char.
    template <typename T>
    static bool IsMatch(const T* pPattern, const T* pName);

    // The mount point of the volume that holds the path, cut to 259 bytes. When the system cannot tell: the
    // leading run of ASCII letters and digits with ":\" added ("D:\" of "D:\x"), "/" for a path that begins
    // with it, else the empty string. Asks the file system and may block with it.
    static void GetHumanReadableDriveFromPath(char* szOut, const char* szPath);

    // The walk through one folder: files/LFolderIterator.h.
    class FolderIterator;
    class FolderIteratorAllFiles;

    // The operations below block with the file system. Whole trees are worked on by folder descriptors: a
    // symbolic link below the path is worked on as itself and never entered, whatever others do to the tree
    // meanwhile; entries that fail are left and the work goes on.

    // True when the path names an existing file or folder, links followed.
    static bool Exists(const char* szPath);

    // The first path of folder/name+extension, folder/name_0+extension, folder/name_1+extension ... that does
    // not exist; the last one tried when names are so long that they are all cut to the same. Returns szOut.
    static char* MakeUniqueOrderedFilePath(char* szOut, const char* szFolder, const char* szName,
                                           const char* szExtension);

    // Copies a file, or a symbolic link as a link, and replaces the target, which is the old file or the whole new
    // one at every moment; a target that is a link is replaced too, not followed. The copy has the permissions of
    // the file without the bits that lend its owner's rights, its times of access and of change, and its users'
    // extended attributes and access list as far as the target's file system keeps them; the owner is this
    // process's. What takes no room in the source because it is a hole takes none in the copy. False, with the
    // target as it was, when the source is something else or is the target itself, when the target is neither file
    // nor link, and when the copy fails; a target path of 260 bytes or more is refused.
    static bool CopyFile(const char* szFrom, const char* szTo);

    // Copies what is in a folder into another one, which is made when it is missing; folders that exist are
    // merged into, files are replaced, each as by CopyFile. Links are copied as links, never followed, but for the
    // two folders themselves; pipes and devices are left out, and what cannot be copied. A folder that is made has
    // mode 0777 under the process's mask and the time of the copy, and takes its name when it is whole, with all that
    // is below it: until then it is ".copy-PID-N" beside it, which is left behind when the process is killed. Nothing
    // when the source is no folder.
    static void CopyFolderFiles(const char* szFrom, const char* szTo);

    // Makes the folder and its missing parents, mode 0777 under the process's mask. Slashes at the end and repeated
    // ones do not count. True when the last folder was made by this call: false for one that exists, and for a path
    // of 260 bytes or more.
    static bool CreateFolderTree(const char* szPath);

    // Deletes the files directly in the folder that match the pattern, as FolderIterator does, and were created
    // more than so many days ago. Nothing when days is below 1.
    static void DeleteOldFiles(const char* szFolder, const char* szPattern, int nDays);

    // Deletes the folder and everything below it; true when all of it is gone. A path that is no folder, or a
    // link to one, is left alone.
    static bool DeleteFolderTree(const char* szPath);
    // The same, taking off the flags of files that must not be changed, where the process may.
    static bool DeleteFolderTreeAlways(const char* szPath);
    // Deletes the files directly in the folder, then the folder: true when it held no folder and is gone.
    static bool DeleteFolderAndFiles(const char* szPath);

    // Gives everybody all permissions (0777) on the file, or on the folder and everything below it. Links are
    // left alone.
    static void SetFolderSecurityAllAccess(const char* szPath);

    // True when somebody else holds a lock on the file that forbids our exclusive one. Both are the same test.
    static bool TestFileShareWriteBlocked(const char* szPath);
    static bool TestFileShareReadBlocked(const char* szPath) { return TestFileShareWriteBlocked(szPath); }
    // True when the file or folder, links followed, carries a flag that forbids its change.
    static bool TestFileLocked(const char* szPath);

    // Marks the file as UTF-8 text for the platform. 0, or -1 when it could not be marked.
    static int SetFileAttributeTextEncodingUTF8(const char* szPath);

    // What errno says of the calling thread's last failed call.
    static bool IsErrorSharingViolation();
    static bool IsErrorAlreadyExists();
    static bool IsErrorPermissionDenied();
    static bool IsErrorFileNotFound();

    // Where things are. Results are absolute and cut at 259 bytes. A getter never fails: where the platform names
    // no folder it is a fixed one below the home folder, or below "/" for a user without one, and is made (one
    // level, mode 0777 under the process's mask) when it is missing.

    // The folder for temporary files: the user's caches.
    static void GetTempFolder(char* szOut) { _GetPlace(szOut, PlaceTemp); }
    static void GetUserMusicFolder(char* szOut) { _GetPlace(szOut, PlaceMusic); }
    static void GetUserVideoFolder(char* szOut) { _GetPlace(szOut, PlaceVideo); }
    static void GetUserPicturesFolder(char* szOut) { _GetPlace(szOut, PlacePictures); }
    static void GetUserApplicationsFolder(char* szOut) { _GetPlace(szOut, PlaceApplications); }
    static void GetUserDocumentsFolder(char* szOut) { _GetPlace(szOut, PlaceDocuments); }
    static void GetUserDesktopFolder(char* szOut) { _GetPlace(szOut, PlaceDesktop); }
    static void GetUserDownloadFolder(char* szOut) { _GetPlace(szOut, PlaceDownload); }
    static void GetUserDataFolder(char* szOut) { _GetPlace(szOut, PlaceData); }
    static void GetSharedDataFolder(char* szOut) { _GetPlace(szOut, PlaceData); }

    // The home folder as it was given to this process; empty when there is none.
    static void GetUserFolder(char* szOut);
    // The home folder in the user database; empty without an entry.
    static void GetUserFolderNonSandboxed(char* szOut);

    // True when the path begins with the home folder as it was given to this process, which in a sandbox is the
    // container. ASCII case is ignored, and no separator is looked for: a home /a/b holds /a/bc too.
    static bool IsPathInSandbox(const char* szPath);
    // The place outside the sandbox that a path in it stands for: the path itself, all its links followed, or,
    // when it does not exist, the target of the first of its components that is a link in the home folder, with
    // the rest behind it. False with an empty szOut when there is none. szOut may be szPath.
    static bool MakeNonSandboxedFilePath(char* szOut, const char* szPath);
    // Fixed folders of the home in the user database.
    static void GetUserDownloadFolderNonSandboxed(char* szOut);
    static void GetUserVideoFolderNonSandboxed(char* szOut);
    static void GetUserMusicFolderNonSandboxed(char* szOut);
    static void GetUserPicturesFolderNonSandboxed(char* szOut);

    // The program's folder below the user's data folder, called as `LSetIdentity` says (base/LIdentity.h) and made
    // when it is missing; the name is not used.
    static void GetUserDataFolderApp(char* szOut);
    static void GetUserDataFolderApp(char* szOut, const char* szName);
    // A folder below that, made when it is missing.
    static void GetUserDataFolderAppSubFolder(const char* szSubFolder, char* szOut);
    // Its sub-folder for the data of all users, and folders below that, open to everybody when they are made.
    static void GetSharedDataFolderApp(char* szOut);
    static void GetSharedDataFolderAppSubFolder(const char* szSubFolder, char* szOut);

    // The applications of all users.
    static void GetApplicationsFolder(char* szOut);
    // Where a bundle of that name is installed, for the user or for all; true when there is one. The path of
    // the place for all users otherwise.
    static bool GetInstalledApplicationExePath(char* szOut, const char* szName);
    // The bundle of this process, and the help in it; empty where the system does not tell a process its program.
    static void GetProgramExecutablePath(char* szOut);
    static void GetHelpFolder(char* szOut);
    // Where volumes are mounted; both are the same place.
    static void GetMountedDrivesFolder(char* szOut);
    static void GetNetworkSharesFolder(char* szOut);

    // The process's working folder; empty when it does not fit. Setting it affects all threads; 0 on success,
    // -1 with errno.
    static void GetCurrentDirectory(char* szOut);
    static int SetCurrentDirectory(const char* szPath);

    // Questions about the volume that holds a path. They ask the file system and may block with it.

    // One of the FileSizeLimit constants.
    static constexpr int FileSizeLimitFAT16 = 0;
    static constexpr int FileSizeLimitFAT32 = 1;
    static constexpr int FileSizeLimitNone = 2; // also when the file system is not known
    static int GetVolumeFileSizeLimit(const char* szPath);

    static constexpr unsigned short FileSystemUnknown = 65535;
    static unsigned short GetVolumeFileSystemID(const char* szPath);
    // The platform's extended attributes of the volume, 0 when they are not known.
    static unsigned int GetVolumeAttributes(const char* szPath);
    // A path whose volume cannot be asked counts as on the network, and as on a local drive.
    static bool IsNetworkPath(const char* szPath);
    // What is not on the internal bus counts as external and removable, volumes on the network too.
    static bool IsOnRemovableMedia(const char* szPath);
    static bool IsOnExternalDrive(const char* szPath);
    static bool IsOnLocalDrive(const char* szPath);

    // The count in the largest unit of 1024 that it reaches, cut to a whole number: "1023 Bytes", "1 KB" ...
    // Returns the length of the text.
    static int GetSizeFormattedBytes(unsigned long long qwBytes, char* szOut);

private:
    enum Place : unsigned int {
        PlaceTemp,
        PlaceMusic,
        PlaceVideo,
        PlacePictures,
        PlaceApplications,
        PlaceDocuments,
        PlaceDesktop,
        PlaceDownload,
        PlaceData,
    };
    static void _GetPlace(char* szOut, Place ePlace);
    // Makes what is missing of the folders above a path. False when a folder cannot be made, or the path is too long.
    static bool _MakeParents(const char* szPath);
};

template <>
bool LFile::IsMatch<char>(const char* pPattern, const char* pName);

// True when the list, which ends with a null entry, holds the extension; ASCII case is ignored.
bool LIsFileExtensionInList(const char* const* pExtensions, const char* szExtension);

// True for a to z, A to Z and 0 to 9 only.
bool LFileIsLetterOrNumber(char character);

// 0 when the text ends with the ending, -1 when the ending is the longer one, else how the end of the text
// compares (strcmp). This one and the next are templates, so that they yield to a program's own functions of
// these names.
template <typename = void>
int tstrcmpend(const char* szText, const char* szEnding);

// The first folder of the search path (an NSSearchPathDirectory) for the user, else szFallback below the home
// folder, made when it is missing. szOut is LPathBufferSize bytes.
template <typename = void>
void GetUserSpecialFolder(char* szOut, unsigned int dwDirectory, const char* szFallback);

#pragma GCC visibility pop
