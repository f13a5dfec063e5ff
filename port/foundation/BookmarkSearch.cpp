#include "foundation/BookmarkSearch.h"

#include <cerrno>
#include <cstring>
#include <deque>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <port/UniqueFd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/SystemCalls.h"

namespace port {
namespace {

static_assert(kBookmarkHandleLimit == MAX_HANDLE_SZ);

// A kernel's handle with room for its bytes.
union FileHandle {
    FileHandle() : room() { head.handle_bytes = MAX_HANDLE_SZ; }

    file_handle head;
    char room[sizeof(file_handle) + MAX_HANDLE_SZ];
};

std::string parentOf(const std::string& path) {
    const std::size_t end = path.rfind('/');
    return end == 0 ? "/" : path.substr(0, end);
}

std::string join(const std::string& folder, const char* name) {
    return (folder == "/" ? folder : folder + "/") + name;
}

bool isSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

// Looks for one file among the names of folders, on one volume: in the folder where it began, in those below and
// above it, and so on.
class FolderSearch {
public:
    FolderSearch(const FileIdentity& wanted, const std::string& start) : wanted_(wanted), start_(start) {
        if (const std::optional<FileIdentity> folder = describeFile(AT_FDCWD, start.c_str(), 0))
            device_ = folder->device;
    }

    // The path of the file if it is in the folder where the search began; else empty.
    std::string lookAtStart() {
        left_ = kBookmarkFolderLimit;
        return look(start_);
    }
    // The path of the file if it is in one of the other folders.
    std::string lookAround() {
        left_ = kBookmarkSearchLimit;
        waiting_.push_back(parentOf(start_));
        std::string found;
        for (; found.empty() && left_ != 0 && !waiting_.empty(); waiting_.pop_front())
            found = look(waiting_.front());
        return found;
    }

    // The errno value of why folders could not be opened; 0 when all could but those that are closed to us.
    int error() const { return error_; }

private:
    std::string look(const std::string& path) {
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
        if (folder == nullptr && errno != ENOENT && (errno != EACCES || path == start_))
            error_ = errno;
        const int descriptor = folder != nullptr ? ::dirfd(folder.get()) : -1;
        struct stat status;
        if (::fstat(descriptor, &status) != 0 || status.st_dev != device_)
            return "";
        for (; left_ != 0; --left_) {
            const dirent* const entry = ::readdir(folder.get());
            if (entry == nullptr)
                break;
            if (isSelfOrParent(entry->d_name))
                continue;
            if (entry->d_ino == wanted_.inode && isWanted(descriptor, entry->d_name))
                return join(path, entry->d_name);
            if (entry->d_type == DT_DIR && waiting_.size() < kBookmarkSearchLimit)
                enqueue(join(path, entry->d_name));
        }
        return "";
    }
    bool isWanted(int folder, const char* name) const {
        const std::optional<FileIdentity> file = describeFile(folder, name, AT_SYMLINK_NOFOLLOW);
        return file && wanted_.isFoundAs(*file);
    }
    // The folder above the first one shows that again.
    void enqueue(std::string path) {
        if (path != start_)
            waiting_.push_back(std::move(path));
    }

    const FileIdentity& wanted_;
    const std::string start_;
    std::uint64_t device_ = 0;
    std::size_t left_ = 0;
    int error_ = 0;
    std::deque<std::string> waiting_;
};

// Asks the kernel for the file itself, which needs the privilege for it. 0 when the path was found, else the
// errno value: ESTALE means that there is no such file any more.
int openByHandle(const BookmarkRecord& record, const std::string& folder, std::string& path) {
    FileHandle handle;
    handle.head.handle_bytes = static_cast<unsigned>(record.handle.size());
    handle.head.handle_type = record.handleType;
    std::memcpy(handle.head.f_handle, record.handle.data(), record.handle.size());
    const UniqueFd volume(sys::open(folder.c_str(), O_RDONLY | O_DIRECTORY));
    const UniqueFd file(volume ? ::open_by_handle_at(volume.get(), &handle.head, O_PATH | O_CLOEXEC) : -1);
    if (!file)
        return errno;
    char name[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(file.get());
    const ssize_t length = ::readlink(link.c_str(), name, sizeof name);
    if (length <= 0 || static_cast<std::size_t>(length) == sizeof name)
        return ENAMETOOLONG;
    // The kernel names a file that it has not met by its path yet, or that is deleted, in its own way.
    const std::string candidate(name, static_cast<std::size_t>(length));
    const std::optional<FileIdentity> there = describeFile(AT_FDCWD, candidate.c_str(), AT_SYMLINK_NOFOLLOW);
    if (candidate.front() != '/' || !there || !record.file.isFoundAs(*there))
        return ENOENT;
    path = candidate;
    return 0;
}

// The folder of the file, or what is left of the way to it.
std::string nearestFolder(const std::string& path) {
    std::string folder = parentOf(path);
    struct stat status;
    while (folder != "/" && (::stat(folder.c_str(), &status) != 0 || !S_ISDIR(status.st_mode)))
        folder = parentOf(folder);
    return folder;
}

} // namespace

bool makeBookmark(const std::string& path, BookmarkRecord& record) {
    const std::optional<FileIdentity> file = describeFile(AT_FDCWD, path.c_str(), 0);
    if (!file || path.size() > kBookmarkPathLimit)
        return false;
    record = {*file, path, 0, {}};
    FileHandle handle;
    int mount = 0;
    if (::name_to_handle_at(AT_FDCWD, path.c_str(), &handle.head, &mount, AT_SYMLINK_FOLLOW) == 0) {
        record.handleType = handle.head.handle_type;
        record.handle.assign(reinterpret_cast<const char*>(handle.head.f_handle), handle.head.handle_bytes);
    }
    return true;
}

int findBookmarked(const BookmarkRecord& record, std::string& path, bool& stale) {
    path.clear();
    if (const auto there = describeFile(AT_FDCWD, record.path.c_str(), 0)) {
        stale = *there != record.file;
        path = record.path;
        return 0;
    }
    stale = true;
    if (errno != ENOENT && errno != ENOTDIR)
        return errno;
    const std::string folder = nearestFolder(record.path);
    FolderSearch search(record.file, folder);
    path = search.lookAtStart();
    if (path.empty() && !record.handle.empty() && openByHandle(record, folder, path) == ESTALE)
        return ENOENT;
    if (path.empty())
        path = search.lookAround();
    return !path.empty() ? 0 : search.error() != 0 ? search.error() : ENOENT;
}

} // namespace port
