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
#include <unordered_map>
#include <vector>

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

std::string join(const std::string& folder, const std::string& name) {
    return (folder == "/" ? folder : folder + "/") + name;
}

bool isSelfOrParent(const char* name) {
    return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

} // namespace

// The names in the folder where a search begins, in those below and above it, and so on, on one volume. Each is
// read once, whatever number of files is looked for.
class BookmarkSearch::Surroundings {
public:
    Surroundings(std::string start, const Deadline& end) : start_(std::move(start)), end_(end) {
        if (const std::optional<FileIdentity> folder = describeFile(AT_FDCWD, start_.c_str(), 0))
            device_ = folder->device;
    }

    // The path of the file if it is in the folder where the search begins; else empty.
    std::string findAtStart(const FileIdentity& wanted) {
        if (folders_.empty())
            readStart();
        return find(wanted);
    }
    // The path of the file if it is in one of the other folders. After findAtStart.
    std::string findAround(const FileIdentity& wanted) {
        if (!hasLookedAround_)
            waiting_.push_back(parentOf(start_));
        hasLookedAround_ = true;
        for (left_ = kBookmarkSearchLimit; !waiting_.empty() && isToGoOn(); waiting_.pop_front())
            read(waiting_.front());
        waiting_.clear();
        return find(wanted);
    }

    // The errno value of why folders could not be opened, or not be read to their end; 0 when all could but
    // those that are closed to us.
    int error() const { return error_; }

private:
    struct Name {
        std::size_t folder; // its index in folders_
        std::string name;
    };

    void readStart() {
        left_ = kBookmarkFolderLimit;
        read(start_);
    }
    void read(const std::string& path) {
        folders_.push_back(path);
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), ::closedir);
        if (folder == nullptr && errno != ENOENT && (errno != EACCES || path == start_))
            error_ = errno;
        struct stat status;
        if (::fstat(folder != nullptr ? ::dirfd(folder.get()) : -1, &status) != 0 || status.st_dev != device_)
            return;
        for (const dirent* entry; isToGoOn() && (entry = ::readdir(folder.get())) != nullptr; --left_) {
            if (isSelfOrParent(entry->d_name))
                continue;
            names_.emplace(entry->d_ino, Name{folders_.size() - 1, entry->d_name});
            if (entry->d_type == DT_DIR && waiting_.size() < kBookmarkSearchLimit)
                enqueue(join(path, entry->d_name));
        }
    }
    bool isToGoOn() {
        if (left_ != 0 && end_.isPast()) {
            error_ = ETIMEDOUT;
            left_ = 0;
        }
        return left_ != 0;
    }
    // The folder above the first one shows that again.
    void enqueue(std::string path) {
        if (path != start_)
            waiting_.push_back(std::move(path));
    }
    std::string find(const FileIdentity& wanted) const {
        const auto [first, last] = names_.equal_range(wanted.inode);
        for (auto name = first; name != last; ++name) {
            std::string path = join(folders_[name->second.folder], name->second.name);
            const std::optional<FileIdentity> file =
                describeFile(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW);
            if (file && wanted.isFoundAs(*file))
                return path;
        }
        return "";
    }

    const std::string start_;
    const Deadline& end_;
    std::uint64_t device_ = 0;
    std::size_t left_ = 0;
    int error_ = 0;
    bool hasLookedAround_ = false;
    std::vector<std::string> folders_; // that were read
    std::unordered_multimap<std::uint64_t, Name> names_;
    std::deque<std::string> waiting_;
};

namespace {

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

BookmarkSearch::BookmarkSearch(std::chrono::milliseconds time) : end_(time) {}

BookmarkSearch::~BookmarkSearch() = default;

BookmarkSearch::Surroundings& BookmarkSearch::around(const std::string& folder) {
    if (const auto known = known_.find(folder); known != known_.end())
        return *known->second;
    if (known_.size() == kBookmarkFoldersKept)
        known_.clear();
    return *known_.emplace(folder, std::make_unique<Surroundings>(folder, end_)).first->second;
}

int BookmarkSearch::find(const BookmarkRecord& record, std::string& path, bool& stale) {
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
    Surroundings& surroundings = around(folder);
    path = surroundings.findAtStart(record.file);
    if (path.empty() && !record.handle.empty() && openByHandle(record, folder, path) == ESTALE)
        return ENOENT;
    if (path.empty())
        path = surroundings.findAround(record.file);
    return !path.empty() ? 0 : surroundings.error() != 0 ? surroundings.error() : ENOENT;
}

} // namespace port
