// Foundation: counted objects, texts, data, URLs of files and their bookmarks, the settings of the user,
// files and the home folder.
//
// Objects and ownership: classes are C++ classes over one intrusive count; a selector `setBool:forKey:`
// becomes `setBool` with its arguments in order. A function that answers a new object returns an `NSRef`,
// which holds one reference and gives it back by itself. A shared object (`standard...`, `shared...`,
// `default...`) comes as a plain pointer and lives until the process ends. Texts and keys are NUL-terminated
// UTF-8; the callee copies what it keeps.
//
// Thread-safety: counts, and every method unless it says otherwise, may be used from any thread. One `NSRef`
// belongs to one thread.
//
// Failure: nothing is thrown but std::bad_alloc. A missing object is a null `NSRef`.
#pragma once

#include <cstdint>
#include <port/Atomic.h>
#include <port/Reference.h>
#include <port/References.h>
#include <port/Unique.h>

#include <CoreFoundation/CoreFoundation.h>

namespace port {
class BookmarkSearch;
class SettingsStore;
} // namespace port

#pragma GCC visibility push(default)

// The root of counted objects. A new one has the count 1, which belongs to its maker.
class NSObject {
public:
    NSObject(const NSObject&) = delete;
    NSObject& operator=(const NSObject&) = delete;

    void retain() const { retainCount_.fetch_add(1, port::Order::Relaxed); }
    // Gives one reference back; the last one destroys the object through `dealloc`.
    void release() const;

    // True when the object has a method of that name that not every object of its kind has.
    virtual bool respondsToSelector(const char* selector) const;

protected:
    NSObject() = default;
    virtual ~NSObject() = default;
    virtual void dealloc() { delete this; }

private:
    mutable port::Atomic<unsigned long> retainCount_{1};
};

// One reference to an object, or none.
template <typename T>
using NSRef = port::Reference<T>;

// An immutable text, or the path of a file, whose bytes need not be one.
class NSString final : public NSObject {
public:
    // Null when `text` is null or no well-formed UTF-8.
    static NSRef<NSString> stringWithUTF8String(const char* text);
    // Null when `text` is null or has no UTF-8 form (a lone surrogate).
    static NSRef<NSString> stringWithCFString(CFStringRef text);
    // A path, any bytes; not null.
    static NSRef<NSString> stringWithFileSystemRepresentation(const char* path);

    // Both live as long as this object; the text of a path that is no well-formed UTF-8 is empty.
    const char* UTF8String() const { return isText_ ? bytes_.get() : ""; }
    const char* fileSystemRepresentation() const { return bytes_.get(); }
    // Exact comparison.
    bool isEqualToString(const char* text) const;

private:
    explicit NSString(const char* bytes, bool isText = true);

    const port::Unique<char[]> bytes_;
    const bool isText_;
};

// Immutable bytes.
class NSData final : public NSObject {
public:
    // Copies the bytes; null is allowed when there are none.
    static NSRef<NSData> dataWithBytes(const void* bytes, unsigned long length);

    // Live as long as this object; not null.
    const std::uint8_t* bytes() const { return bytes_.get(); }
    unsigned long length() const { return length_; }

private:
    NSData(const void* bytes, unsigned long length);

    const port::Unique<std::uint8_t[]> bytes_;
    const unsigned long length_;
};

// A growing array of texts, which it retains. Its owner guards it while it changes.
class NSMutableArray final : public NSObject {
public:
    // Empty.
    static NSRef<NSMutableArray> array();
    // An array of the same texts.
    NSRef<NSMutableArray> mutableCopy() const;

    unsigned long count() const { return texts_.size(); }
    // The index is below the count; the text lives as long as the array holds it.
    NSString* objectAtIndex(unsigned long index) const { return texts_[index].get(); }
    // By value, exactly.
    bool containsObject(const NSString& text) const;

    void addObject(const NSRef<NSString>& text) { texts_.push_back(text); } // not null
    void addObjectsFromArray(const NSMutableArray& other);
    // Removes every text that equals one of those.
    void removeObjectsInArray(const NSMutableArray& others);

private:
    NSMutableArray() = default;

    port::References<NSString> texts_;
};

enum NSURLBookmarkCreationOptions : unsigned long { NSURLBookmarkCreationWithSecurityScope = 1UL << 11 };
enum NSURLBookmarkResolutionOptions : unsigned long { NSURLBookmarkResolutionWithSecurityScope = 1UL << 10 };

// The URL of a file or folder, which need not exist.
//
// A bookmark of it finds the file again after a restart, also when it was renamed or moved meanwhile. It is
// no secret and no right: whoever may write the settings may write one. A subclass may stand for a URL that
// came from somewhere else.
class NSURL : public NSObject {
public:
    // Null when `path` is null or empty. A relative path is made absolute against the working folder; slashes
    // at its end are dropped.
    static NSRef<NSURL> fileURLWithPath(const char* path);

    // The path as text; null when its bytes are no UTF-8.
    NSRef<NSString> path() const { return NSString::stringWithUTF8String(path_.get()); }
    // The bytes of the path; live as long as this object.
    const char* fileSystemRepresentation() const { return path_.get(); }

    // A bookmark of the file, links followed. Null when there is no such file, or its path is longer than
    // PATH_MAX allows.
    NSRef<NSData> bookmarkDataWithOptions(NSURLBookmarkCreationOptions options) const;

    // The URL of the file where it is now. What is at the recorded path comes first, whatever it is; where
    // nothing is, the file is looked for under other names in its folder and in the folders around it, some
    // thousand files at most and about a second at most. *isStale tells that a fresh bookmark should be made:
    // the file is elsewhere, or is another one. Null, with *isStale false and errno, when it is not found:
    // ENOENT when it is known to be gone, EINVAL for bytes that no bookmark has, else why it could not be
    // looked for, ETIMEDOUT when the time had passed.
    static NSRef<NSURL> URLByResolvingBookmarkData(const NSData& bookmark,
                                                   NSURLBookmarkResolutionOptions options, bool* isStale);

    // While one lives, the bookmarks that its thread resolves are one search: what was read of a folder serves
    // all of them, and the second is that of all of them. For as long as it takes to resolve some in a row.
    class port_SharedSearch {
    public:
        port_SharedSearch();
        ~port_SharedSearch();
        port_SharedSearch(const port_SharedSearch&) = delete;
        port_SharedSearch& operator=(const port_SharedSearch&) = delete;

    private:
        const port::Unique<port::BookmarkSearch> search_;
        port::BookmarkSearch* const before_;
    };

    // Both methods of the security scope.
    bool respondsToSelector(const char* selector) const override;
    // True when this process may read the file. Access here depends on nothing but the file's permissions, so
    // there is nothing to be given back.
    virtual bool startAccessingSecurityScopedResource();
    virtual void stopAccessingSecurityScopedResource() {}

protected:
    explicit NSURL(const char* path);

private:
    const port::Unique<char[]> path_;
};

// The settings of one application: one property list, `<bundle identifier>.plist` (for a program outside a
// bundle `<file name of the executable>.plist`), in $XDG_CONFIG_HOME, else ~/.config.
//
// Reading and changing work in memory; the file is read at the first use, and until that has succeeded at
// every use, and never changed by it. The lasting effect comes with `synchronize`, which blocks.
class NSUserDefaults final : public NSObject {
public:
    // The settings of this application.
    static NSUserDefaults* standardUserDefaults();
    // The settings of the application with that bundle identifier. Null when the identifier names no file
    // (empty, too long, or with a "/"). Where there is no home folder, settings that can be neither read nor
    // saved.
    static NSRef<NSUserDefaults> initWithSuiteName(const char* identifier);

    // Null when the key is absent or its value is no string.
    NSRef<NSString> stringForKey(const char* key) const;
    // True for a true boolean, a number other than 0, and a text that begins with Y, y, T, t or a number
    // other than 0 (blanks, signs and zeros in front skipped); false otherwise, also when the key is absent.
    bool boolForKey(const char* key) const;
    // Null when the key is absent or its value is no data.
    NSRef<NSData> dataForKey(const char* key) const;
    // A new array of the texts in the stored one; values of other types in it are left out. Null when the key
    // is absent or its value is no array.
    NSRef<NSMutableArray> arrayForKey(const char* key) const;

    // What no property list holds (a control character in a text or a key, a text of more than 1 MiB) is not
    // set: the key keeps the value that it has.
    void setBool(bool value, const char* key);
    void setObject(const NSString& value, const char* key);
    void setObject(const NSData& value, const char* key);
    void setObject(const NSMutableArray& value, const char* key);
    // Adds a text to the array of texts under the key, unless it is there, and takes another one out of it;
    // null for none. Only these differences are saved, over what other processes have written into the array
    // by then.
    void port_editArray(const char* added, const char* removed, const char* key);
    // Saves the data, and its key in the array of texts under `listKey`, at once and together; other changes
    // stay pending. On the disk when this returns; blocks as `synchronize` does. False, with errno, when they
    // could not be saved: nothing of them is kept, in memory either.
    bool port_saveListed(const NSData& value, const char* key, const char* listKey);
    // False while a change of the key waits to be saved.
    bool port_isSaved(const char* key) const;
    // While the settings cannot be read nothing is removed but a change that was not saved.
    void removeObjectForKey(const char* key);

    // Writes the changes made through this object into the file, key by key over what other processes wrote
    // meanwhile, and takes their changes in. The new file replaces the old one whole and is on the disk when
    // this returns; when nothing differs, nothing is written. False, with errno, when the file could not be
    // read, locked (waits up to 5 s for another process) or written: the file is as it was, or, where only the
    // disk does not tell that it has it, the new one already; the changes stay pending. A file that is no property
    // list is renamed to `<file>.corrupt-<time>` when there are changes to write, with one line on standard error.
    bool synchronize();

    // False when the settings file cannot be read: every key is absent then, which says nothing about the
    // file, and nothing is removed or saved. *error (may be null) gets the errno value, EFBIG for a file of
    // more than 4 MiB; EBADMSG for a file that is no property list, over which a save still goes; 0 with
    // true.
    bool port_isReadable(int* error) const;

    // Removes every setting: the file, whatever it holds, the damaged ones that were kept beside it, and the
    // lock file. Blocks as `synchronize` does. False, with errno, when something stays.
    bool port_removeAll();
    // The settings file, which need not exist; empty when there is no place for one. Lives as long as this
    // object.
    const char* port_path() const;

private:
    explicit NSUserDefaults(port::Unique<port::SettingsStore> store);
    ~NSUserDefaults() override;

    const port::Unique<port::SettingsStore> store_;
};

enum class NSFileType { None, Regular, Directory, SymbolicLink, Unknown };

struct NSFileAttributes {
    NSFileType fileType;
};

// Asks the file system and may block with it.
class NSFileManager final : public NSObject {
public:
    static NSFileManager* defaultManager();

    // Follows links; false for an empty path.
    bool fileExistsAtPath(const char* path) const;

    // Of the item itself, links not followed; of the type None when they cannot be read.
    NSFileAttributes attributesOfItemAtPath(const char* path) const;

    // What is in the folder, hidden items too, in the order in which the file system gives it; at most
    // kPortDirectoryItems. Empty when the folder cannot be read.
    static constexpr unsigned long kPortDirectoryItems = 65536;
    port::References<NSURL> contentsOfDirectoryAtURL(const NSURL& folder) const;
};

// The home folder as it was given to this process: CFFIXED_USER_HOME, else HOME, else the entry of the user
// database. A path, which need not be UTF-8. Null when there is none.
NSRef<NSString> NSHomeDirectory();

// What the application tells its delegate.
class NSNotification final {
public:
    explicit NSNotification(const char* name) : name_(name) {}
    const char* name() const { return name_; }

private:
    const char* name_;
};

// Directories and domains of search paths; the numbers are the platform's.
enum NSSearchPathDirectory : unsigned long {
    NSApplicationDirectory = 1,
    NSDocumentDirectory = 9,
    NSDesktopDirectory = 12,
    NSCachesDirectory = 13,
    NSApplicationSupportDirectory = 14,
    NSDownloadsDirectory = 15,
    NSMoviesDirectory = 17,
    NSMusicDirectory = 18,
    NSPicturesDirectory = 19,
};
enum NSSearchPathDomainMask : unsigned long { NSUserDomainMask = 1, NSLocalDomainMask = 2 };

// The folders of that kind, the first one to be preferred; none when there is none. Absolute paths; the tilde is
// always expanded. Caches and application support are those of the XDG base directories and are made, 0700,
// when they are missing; documents, media and the like come from user-dirs.dirs in the configuration folder.
port::References<NSString> NSSearchPathForDirectoriesInDomains(NSSearchPathDirectory directory,
                                                               NSSearchPathDomainMask domain,
                                                               bool expandTilde);

// The bundle of this process; for a plain executable the folder that it is in.
class NSBundle final : public NSObject {
public:
    static NSBundle* mainBundle();
    // Null where the system does not tell a process its program.
    NSRef<NSString> bundlePath() const;
};

#pragma GCC visibility pop
