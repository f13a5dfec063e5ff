#include "files/LFile.h"
#include "files/LFolderIterator.h"

#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <port/bsd.h>
#include <port/files.h>
#include <set>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// Names that must be taken as they are.
const char* const awkwardNames[] = {"-rf",     "a b", "q\"uo'te", "$(touch x)",  "line\nfeed", "\xff\xfe",
                                    ".hidden", "*",   "__MACOSX", "back\\slash", "`x`"};

std::size_t OpenDescriptors() {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator("/proc/self/fd"), {}));
}

class FileTreeTest : public testing::Test {
protected:
    void SetUp() override {
        std::string name = std::string(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + "/trees-XXXXXX";
        root = mkdtemp(name.data());
        nDescriptors = OpenDescriptors();
    }
    void TearDown() override {
        EXPECT_EQ(OpenDescriptors(), nDescriptors) << "descriptors leaked";
        EXPECT_EQ(std::system(("chmod -R u+rwx '" + root + "'; rm -rf '" + root + "'").c_str()), 0);
    }
    std::string Path(const std::string& name) const { return root + "/" + name; }
    void Write(const std::string& name, const std::string& text = "text") const {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // A folder with awkward names, hidden files, links outwards, a pipe, and a folder below.
    void MakeTree(const std::string& name) const {
        fs::create_directories(Path(name + "/sub/empty"));
        for (const char* szName : awkwardNames) {
            Write(name + "/" + szName, szName);
            Write(name + "/sub/" + szName, szName);
        }
        fs::create_symlink("/etc/passwd", Path(name + "/outward"));
        fs::create_directory_symlink(Path("outside"), Path(name + "/sub/out folder"));
        ASSERT_EQ(mkfifo(Path(name + "/pipe").c_str(), 0600), 0);
    }

    std::string root;
    std::size_t nDescriptors = 0;
};

TEST_F(FileTreeTest, DeletesATreeAndNothingBehindItsLinks) {
    fs::create_directory(Path("outside"));
    Write("outside/kept");
    MakeTree("tree");
    EXPECT_TRUE(LFile::DeleteFolderTree((Path("tree") + "//").c_str()));
    EXPECT_FALSE(fs::exists(Path("tree")));
    EXPECT_EQ(Read("outside/kept"), "text");

    fs::create_directory_symlink(Path("outside"), Path("link"));
    for (const auto& path :
         {Path("link"), Path("link/"), Path("outside/kept"), Path("missing"), std::string()})
        EXPECT_FALSE(LFile::DeleteFolderTree(path.c_str())) << path;
    EXPECT_EQ(Read("outside/kept"), "text");
    EXPECT_TRUE(fs::is_symlink(Path("link")));

    MakeTree("files");
    EXPECT_FALSE(LFile::DeleteFolderAndFiles(Path("files").c_str()));
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("files")), {}), 1) << "only the folder is left";
    EXPECT_TRUE(LFile::DeleteFolderAndFiles(Path("files/sub/empty").c_str()));
}

TEST_F(FileTreeTest, CopiesATreeAsItIs) {
    fs::create_directory(Path("outside"));
    MakeTree("tree");
    chmod(Path("tree/a b").c_str(), 0741);
    LFile::CopyFolderFiles(Path("tree").c_str(), Path("a/b/copy").c_str());
    LFile::CopyFolderFiles(Path("tree").c_str(), Path("a/b/copy").c_str()); // merges, and ends
    EXPECT_EQ(std::system(("rm '" + Path("tree/pipe") + "'; diff -r --no-dereference '" + Path("tree") +
                           "' '" + Path("a/b/copy") + "'")
                              .c_str()),
              0);
    EXPECT_EQ(fs::read_symlink(Path("a/b/copy/outward")), "/etc/passwd");
    struct stat status;
    ASSERT_EQ(stat(Path("a/b/copy/a b").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0741U);

    LFile::CopyFolderFiles(Path("tree").c_str(), Path("tree/sub/inside").c_str()); // ends too
    EXPECT_TRUE(fs::exists(Path("tree/sub/inside/a b")));
    EXPECT_FALSE(fs::exists(Path("tree/sub/inside/sub/inside")));
}

TEST_F(FileTreeTest, ManagesDeepAndWideFolders) {
    const int nTree = open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int nFolder = dup(nTree);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(mkdirat(nFolder, "down", 0700), 0);
        const int nNext = openat(nFolder, "down", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(openat(nNext, "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        close(nFolder);
        nFolder = nNext;
    }
    close(nFolder);
    close(nTree);
    for (int i = 0; i < 20000; ++i)
        close(open(Path("down/" + std::to_string(i)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    LFile::CopyFolderFiles(Path("down").c_str(), Path("copy").c_str());
    EXPECT_TRUE(LFile::DeleteFolderTree(Path("down").c_str()));
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("copy")), {}), 20002);
    EXPECT_TRUE(LFile::DeleteFolderTree(Path("copy").c_str()));
}

// A process that swaps folders for links to the outside, as fast as it can, while the trees are worked on.
TEST_F(FileTreeTest, CannotBeLedOutsideByASwap) {
    fs::create_directories(Path("outside/inner"));
    Write("outside/inner/kept");
    chmod(Path("outside/inner/kept").c_str(), 0600);
    const std::jthread hostile([&](const std::stop_token& end) {
        while (!end.stop_requested()) {
            renameat2(AT_FDCWD, Path("tree/victim").c_str(), AT_FDCWD, Path("bait").c_str(), RENAME_EXCHANGE);
            unlink(Path("tree/victim/inner").c_str());
        }
    });
    const auto length = std::chrono::seconds(std::getenv("LFOUNDATION_TORTURE") != nullptr ? 60 : 2);
    const auto end = std::chrono::steady_clock::now() + length;
    for (int i = 0; std::chrono::steady_clock::now() < end; ++i) {
        std::error_code ignored; // a swap at the wrong moment leaves something of the last round
        fs::create_directory_symlink(Path("outside"), Path("bait"), ignored);
        fs::create_directories(Path("tree/victim/inner"), ignored);
        if (i % 3 == 0)
            LFile::SetFolderSecurityAllAccess(Path("tree").c_str());
        else if (i % 3 == 1)
            LFile::CopyFolderFiles(Path("tree").c_str(), Path("copy").c_str());
        LFile::DeleteFolderTree(Path("tree").c_str());
        LFile::DeleteFolderTree(Path("bait").c_str());
        unlink(Path("bait").c_str());
        LFile::DeleteFolderTree(Path("copy").c_str());
        ASSERT_EQ(Read("outside/inner/kept"), "text") << "round " << i;
        struct stat status;
        ASSERT_EQ(stat(Path("outside/inner/kept").c_str(), &status), 0);
        ASSERT_EQ(status.st_mode & 0777, 0600U);
    }
}

TEST_F(FileTreeTest, OpensWhatIsClosed) {
    MakeTree("tree");
    chmod(Path("tree/a b").c_str(), 0);
    chmod(Path("tree/sub").c_str(), 0);
    LFile::SetFolderSecurityAllAccess(Path("tree").c_str());
    for (const char* szName : {"tree", "tree/a b", "tree/sub", "tree/sub/.hidden", "tree/sub/empty"}) {
        struct stat status;
        ASSERT_EQ(stat(Path(szName).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0777U) << szName;
    }
}

TEST_F(FileTreeTest, CopiesAFileWholeOrNotAtAll) {
    Write("from", std::string(200000, 'x'));
    Write("to", "old");
    const timespec times[2] = {{1000000, 0}, {2000000, 0}};
    utimensat(AT_FDCWD, Path("from").c_str(), times, 0);
    const bool bAttributes = setxattr(Path("from").c_str(), "user.note", "hello", 5, 0) == 0;
    EXPECT_TRUE(LFile::CopyFile(Path("from").c_str(), Path("to").c_str()));
    EXPECT_EQ(Read("to"), std::string(200000, 'x'));
    struct stat status;
    ASSERT_EQ(stat(Path("to").c_str(), &status), 0);
    EXPECT_EQ(status.st_mtime, 2000000);
    char value[8] = {};
    EXPECT_EQ(getxattr(Path("to").c_str(), "user.note", value, sizeof value), bAttributes ? 5 : -1);

    fs::create_hard_link(Path("from"), Path("same"));
    fs::create_directory(Path("folder"));
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    const struct {
        std::string from, to;
    } rejected[] = {
        {Path("from"), Path("from")},   {Path("from"), root + "/./from"}, {Path("from"), Path("same")},
        {Path("missing"), Path("to")},  {Path("pipe"), Path("to")},       {Path("folder"), Path("to")},
        {Path("from"), Path("folder")}, {Path("from"), Path("no/where")}, {Path("from"), ""}};
    for (const auto& row : rejected)
        EXPECT_FALSE(LFile::CopyFile(row.from.c_str(), row.to.c_str())) << row.from << " to " << row.to;
    EXPECT_EQ(Read("from").size(), 200000U);
    EXPECT_EQ(Read("to").size(), 200000U);
    EXPECT_EQ(std::distance(fs::directory_iterator(root), {}), 5) << "a temporary file is left";
}

TEST_F(FileTreeTest, AFullFileSystemKeepsTheOldTarget) {
    fs::create_directory(Path("small"));
    if (mount("none", Path("small").c_str(), "tmpfs", 0, "size=256k") != 0)
        GTEST_SKIP() << "no file system can be mounted here";
    Write("big", std::string(400000, 'x'));
    Write("small/to", "old");
    EXPECT_FALSE(LFile::CopyFile(Path("big").c_str(), Path("small/to").c_str()));
    EXPECT_EQ(Read("small/to"), "old");
    EXPECT_EQ(std::distance(fs::directory_iterator(Path("small")), {}), 1);
    umount(Path("small").c_str());
}

TEST_F(FileTreeTest, IteratorsReportWhatTheyPromise) {
    MakeTree("tree");
    Write("tree/NOTES.txt");
    Write("tree/notes.TXT");
    const auto names = [](LFile::FolderIterator& iterator) {
        std::multiset<std::string> all;
        for (; iterator.IsOpen(); iterator.Next())
            all.insert(iterator.GetName());
        return all;
    };
    LFile::FolderIterator some;
    LFile::FolderIteratorAllFiles every;
    some.Open(Path("tree").c_str(), "*.Txt");
    EXPECT_EQ(names(some), (std::multiset<std::string>{"NOTES.txt", "notes.TXT"}));
    some.Open(Path("tree/NOTES.txt").c_str());
    EXPECT_EQ(names(some).size(), 2U);
    every.Open(Path("tree").c_str());
    EXPECT_EQ(names(every).size(), std::size(awkwardNames) + 7);
    some.Open(Path("tree").c_str());
    EXPECT_EQ(names(some).size(), std::size(awkwardNames) + 3);
    EXPECT_FALSE(some.Open(Path("tree/.hidden").c_str()));
    EXPECT_FALSE(some.Open(Path("missing").c_str()));
    EXPECT_STREQ(some.GetName(), "");
    every.Open(Path("tree/sub").c_str());
    for (; every.IsOpen(); every.Next())
        EXPECT_EQ(every.IsFolder(), fs::is_directory(Path(std::string("tree/sub/") + every.GetName())))
            << every.GetName();
}

TEST_F(FileTreeTest, FindsFreeNamesAndMakesFolders) {
    Write("a.txt");
    Write("a_0.txt");
    char szPath[LPathBufferSize];
    EXPECT_EQ(LFile::MakeUniqueOrderedFilePath(szPath, root.c_str(), "a", ".txt"), Path("a_1.txt"));
    const std::string sLong(LPathBufferSize, 'n');
    LFile::_MakeFilePath(szPath, root.c_str(), sLong.c_str(), "");
    close(open(szPath, O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    EXPECT_EQ(std::string(LFile::MakeUniqueOrderedFilePath(szPath, root.c_str(), sLong.c_str(), "")).size(),
              LPathBufferSize - 1);

    EXPECT_TRUE(LFile::CreateFolderTree(Path("x/y/z").c_str()));
    EXPECT_FALSE(LFile::CreateFolderTree(Path("x/y/z").c_str()));
    EXPECT_FALSE(LFile::CreateFolderTree(Path("a.txt/below").c_str()));
    EXPECT_TRUE(LFile::Exists(Path("x/y/z").c_str()));
    EXPECT_FALSE(LFile::Exists(Path("x/y/w").c_str()));
    EXPECT_FALSE(LFile::Exists(""));
}

TEST_F(FileTreeTest, TellsLocksAgesAndMarks) {
    Write("file");
    const std::string sFile = Path("file");
    EXPECT_FALSE(LFile::TestFileShareWriteBlocked(sFile.c_str()));
    const int nHeld = port_open(sFile.c_str(), O_RDONLY | O_SHLOCK);
    EXPECT_TRUE(LFile::TestFileShareReadBlocked(sFile.c_str()));
    close(nHeld);
    EXPECT_FALSE(LFile::TestFileShareWriteBlocked(Path("missing").c_str()));
    EXPECT_TRUE(LFile::IsErrorFileNotFound());
    LFile::DeleteOldFiles(root.c_str(), "*", 0);
    LFile::DeleteOldFiles(root.c_str(), "*", 1); // created just now, whatever its other times say
    EXPECT_TRUE(fs::exists(sFile));
    if (LFile::SetFileAttributeTextEncodingUTF8(sFile.c_str()) == 0) {
        char value[32] = {};
        EXPECT_EQ(getxattr(sFile.c_str(), "user.com.apple.TextEncoding", value, sizeof value), 15);
        EXPECT_STREQ(value, "utf-8;134217984");
    }
    EXPECT_EQ(LFile::SetFileAttributeTextEncodingUTF8(Path("missing").c_str()), -1);
    EXPECT_FALSE(LFile::TestFileLocked(sFile.c_str()));
    if (std::system(("chattr +i '" + sFile + "' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "files cannot be made immutable here";
    EXPECT_TRUE(LFile::TestFileLocked(sFile.c_str()));
    EXPECT_FALSE(LFile::DeleteFolderTree(root.c_str()));
    EXPECT_TRUE(LFile::DeleteFolderTreeAlways(root.c_str()));
}

} // namespace
