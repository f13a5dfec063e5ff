#include "files/LFile.h"
#include "files/LFolderIterator.h"
#include "files/LProcessCopy.h"
#include "files/internal/LFolderStack.h"
#include "host/SystemCalls.h"
#include "support/Bundle.h"
#include "support/TemporaryFolder.h"
#include "threads/LProcessInterface.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>

// What comes before the next rename.
static std::function<void()> beforeRename;
extern "C" int __real_renameat(int, const char*, int, const char*);
extern "C" int __wrap_renameat(int, const char*, int, const char*);
extern "C" int __wrap_renameat(int nFrom, const char* szFrom, int nTo, const char* szTo) {
    if (beforeRename)
        std::exchange(beforeRename, {})();
    return __real_renameat(nFrom, szFrom, nTo, szTo);
}

namespace {

namespace fs = std::filesystem;

// Names that must be taken as they are.
const char* const awkwardNames[] = {"-rf",     "a b", "q\"uo'te", "$(touch x)",  "line\nfeed", "\xff\xfe",
                                    ".hidden", "*",   "__MACOSX", "back\\slash", "`x`"};

long Entries(const std::string& folder) {
    return std::distance(fs::directory_iterator(folder), {});
}

class FileTreeTest : public testing::Test, protected TemporaryFolder {
protected:
    FileTreeTest() : TemporaryFolder(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") {}
    void TearDown() override { EXPECT_EQ(Entries("/proc/self/fd"), nDescriptors) << "descriptors leaked"; }
    std::string Path(const std::string& name) const { return root / name; }
    void Write(const std::string& name, const std::string& text = "text") const {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    unsigned Mode(const std::string& name) const {
        return static_cast<unsigned>(fs::status(root / name).permissions());
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

    const long nDescriptors = Entries("/proc/self/fd");
};

TEST_F(FileTreeTest, DeletesATreeAndNothingBehindItsLinks) {
    fs::create_directory(Path("outside"));
    Write("outside/kept");
    MakeTree("tree");
    EXPECT_TRUE(LFile::DeleteFolderTree((Path("tree") + "//").c_str()));
    EXPECT_FALSE(fs::exists(Path("tree")));
    fs::create_directory_symlink(Path("outside"), Path("link"));
    EXPECT_FALSE(LFile::DeleteFolderTree(""));
    for (const char* szName : {"link", "link/", "outside/kept", "missing"})
        EXPECT_FALSE(LFile::DeleteFolderTree(Path(szName).c_str())) << szName;
    EXPECT_EQ(FileText(Path("outside/kept")), "text");
    EXPECT_TRUE(fs::is_symlink(Path("link")));

    MakeTree("files");
    EXPECT_FALSE(LFile::DeleteFolderAndFiles(Path("files").c_str()));
    EXPECT_EQ(Entries(Path("files")), 1) << "only the folder is left";
    EXPECT_TRUE(LFile::DeleteFolderAndFiles(Path("files/sub/empty").c_str()));
}

TEST_F(FileTreeTest, CopiesATreeAsItIsAndOpensWhatIsClosed) {
    fs::create_directory(Path("outside"));
    MakeTree("tree");
    const std::pair<const char*, mode_t> modes[] = {{"a b", 0741}, {"*", 0666}, {"-rf", 0400}};
    for (const auto& [szName, nMode] : modes)
        chmod(Path(std::string("tree/") + szName).c_str(), nMode);
    beforeRename = [&] { // others make the folder before it takes its name
        EXPECT_FALSE(fs::exists(Path("a/b/copy")));
        fs::create_directories(Path("a/b/copy/sub/empty"));
        Write("a/b/copy/*", "old");
    };
    for (int i = 0; i < 2; ++i) // the second time it merges
        for (const std::string szCopy : {"a/b/copy", "a/b/other"}) {
            LFile::CopyFolderFiles(Path("tree").c_str(), Path(szCopy).c_str());
            const std::string sCompare =
                "diff -r -x pipe --no-dereference " + Path("tree") + " " + Path(szCopy);
            EXPECT_EQ(std::system(sCompare.c_str()), 0);
            EXPECT_FALSE(fs::exists(Path(szCopy + "/pipe")));
            for (const auto& [szName, nMode] : modes)
                EXPECT_EQ(Mode(szCopy + "/" + szName), nMode) << szName;
        }
    EXPECT_EQ(Entries(Path("a/b")), 2);
    chmod(Path("tree/a b").c_str(), 0);
    chmod(Path("tree/sub").c_str(), 0);
    LFile::SetFolderSecurityAllAccess(Path("tree").c_str());
    for (const char* szName : {"tree", "tree/a b", "tree/sub", "tree/sub/.hidden", "tree/sub/empty"})
        EXPECT_EQ(Mode(szName), 0777U) << szName;
    LFile::CopyFolderFiles(Path("tree").c_str(), Path("tree/sub/inside").c_str()); // ends too
    EXPECT_TRUE(fs::exists(Path("tree/sub/inside/a b")));
    EXPECT_FALSE(fs::exists(Path("tree/sub/inside/sub/inside")));
}

TEST_F(FileTreeTest, ManagesDeepAndWideFolders) {
    port::UniqueFd folder(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(mkdirat(folder.get(), "down", 0700), 0);
        folder.reset(openat(folder.get(), "down", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        close(openat(folder.get(), "file", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    }
    folder.reset();
    for (int i = 0; i < 100000; ++i)
        close(open(Path("down/" + std::to_string(i)).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
    LFile::CopyFolderFiles(Path("down").c_str(), Path("copy").c_str());
    EXPECT_TRUE(LFile::DeleteFolderTree(Path("down").c_str()));
    EXPECT_EQ(Entries(Path("copy")), 100002);
    EXPECT_TRUE(LFile::DeleteFolderTree(Path("copy").c_str()));
}

// The way back up through a folder that was moved out of the tree would lead to what is there.
TEST_F(FileTreeTest, AWalkStopsWhereAFolderWasMovedAway) {
    std::string sDeep = "tree";
    for (std::size_t i = 0; i < LFolderStack::kMostOpen + 5; ++i)
        sDeep += "/d";
    fs::create_directories(Path(sDeep));
    LFolderStack stack;
    ASSERT_TRUE(stack.Push(AT_FDCWD, Path("tree").c_str()));
    while (stack.Push(AT_FDCWD, "d")) {
    }
    fs::rename(Path("tree/d/d"), Path("away"));
    while (stack.GetDepth() > 3)
        ASSERT_TRUE(stack.Pop());
    EXPECT_FALSE(stack.Pop());
    EXPECT_TRUE(stack.IsEmpty());
}

// A process that swaps folders for links to the outside, as fast as it can, while the trees are worked on.
TEST_F(FileTreeTest, CannotBeLedOutsideByASwap) {
    fs::create_directories(Path("outside/inner"));
    Write("outside/inner/kept");
    fs::create_directories(Path("evil/victim/inner"));
    Write("evil/victim/inner/kept", "evil");
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
        LProcessInterfaceVoid process;
        if (i % 4 == 0)
            LFile::SetFolderSecurityAllAccess(Path("tree").c_str());
        else if (i % 4 == 1)
            LFile::CopyFolderFiles(Path("tree").c_str(), Path("copy").c_str());
        else if (i % 4 == 2)
            Process(process, LProcessCopyFolder{Path("tree").c_str(), Path("copy").c_str()});
        else
            Process(process, LProcessCopyFolder{Path("evil").c_str(), Path("tree").c_str()});
        ASSERT_FALSE(i % 4 == 2 && FileText(Path("copy/victim/inner/kept")) == "text") << "round " << i;
        LFile::DeleteFolderTree(Path("tree").c_str());
        LFile::DeleteFolderTree(Path("bait").c_str());
        unlink(Path("bait").c_str());
        LFile::DeleteFolderTree(Path("copy").c_str());
        ASSERT_EQ(FileText(Path("outside/inner/kept")), "text") << "round " << i;
        ASSERT_EQ(Mode("outside/inner/kept"), 0600U);
    }
}

TEST_F(FileTreeTest, CopiesAFileWholeOrNotAtAll) {
    Write("from", std::string(200000, 'x'));
    Write("to", "old");
    fs::last_write_time(Path("from"), {});
    bool bKept = false;
    for (const char* szName : {"security.note", "trusted.note", "user.note"}) // the former for root
        bKept = setxattr(Path("from").c_str(), szName, "hello", 5, 0) == 0;
    EXPECT_TRUE(LFile::CopyFile(Path("from").c_str(), Path("to").c_str()));
    EXPECT_EQ(FileText(Path("to")), std::string(200000, 'x'));
    EXPECT_EQ(fs::last_write_time(Path("to")), fs::file_time_type());
    EXPECT_EQ(getxattr(Path("to").c_str(), "user.note", nullptr, 0), bKept ? 5 : -1);
    for (const char* szName : {"security.note", "trusted.note"})
        EXPECT_EQ(getxattr(Path("to").c_str(), szName, nullptr, 0), -1) << "grants rights";

    fs::create_hard_link(Path("from"), Path("same"));
    fs::create_directory(Path("folder"));
    ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
    fs::create_symlink("from", Path("link"));
    fs::create_hard_link(Path("link"), Path("same link"));
    for (const char* szFrom : {"link", "link", "from"}) {
        EXPECT_TRUE(LFile::CopyFile(Path(szFrom).c_str(), Path("new").c_str()));
        EXPECT_EQ(fs::is_symlink(Path("new")), fs::is_symlink(Path(szFrom)));
    }
    const std::pair<const char*, const char*> rejected[] = {
        {"link", "same link"}, {"link", "folder"},   {"link", "no/where"}, {"from", "./from"},
        {"from", "same"},      {"missing", "to"},    {"pipe", "to"},       {"folder", "to"},
        {"from", "folder"},    {"from", "no/where"}, {"from", ""},         {"from", "pipe"},
        {"link", "pipe"}};
    for (const auto& [szFrom, szTo] : rejected)
        EXPECT_FALSE(LFile::CopyFile(Path(szFrom).c_str(), Path(szTo).c_str())) << szFrom << " to " << szTo;
    for (const char* szName : {"from", "to"})
        EXPECT_EQ(fs::file_size(Path(szName)), 200000U) << szName;
    EXPECT_EQ(Entries(root), 8) << "a temporary file is left";
}

// Which call fails, and how, while a file is copied.
using port::sys::Call;
std::tuple<Call, int, int, bool> fault; // how many calls pass before, errno, whether it is overcome

TEST_F(FileTreeTest, CopiesSurviveWhatTheFileSystemRefuses) {
    for (const auto& row : {std::tuple{Call::Open, 1, EOPNOTSUPP, true}, // no nameless files
                            {Call::Read, 0, EIO, false},
                            {Call::Write, 0, ENOSPC, false},
                            {Call::Rename, 0, EIO, false}}) {
        Write("from", "new");
        Write("to", "old");
        fault = row;
        port::sys::setHook([](Call call) {
            auto& [failing, nBefore, nError, bOvercome] = fault;
            return port::sys::Verdict{call == failing && nBefore-- == 0 ? nError : 0};
        });
        const bool bCopied = LFile::CopyFile(Path("from").c_str(), Path("to").c_str());
        port::sys::setHook(nullptr);
        EXPECT_EQ(bCopied, std::get<bool>(row)) << strerror(std::get<2>(row));
        EXPECT_EQ(FileText(Path("to")), bCopied ? "new" : "old");
        EXPECT_EQ(Entries(root), 2);
    }
}

TEST_F(FileTreeTest, AKilledCopyLeavesAWholeFileOrNothing) {
    constexpr std::uintmax_t dwSize = std::uintmax_t{16} << 20;
    fs::create_directory(Path("from"));
    Write("from/file", std::string(dwSize, 'x'));
    for (useconds_t i = 0; i < 20; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            if (i % 2 == 0)
                LFile::CopyFile(Path("from/file").c_str(), Path("to").c_str());
            LFile::CopyFolderFiles(Path("from").c_str(), Path("copy").c_str());
            _exit(0);
        }
        usleep(i * 1000);
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        for (const char* szCopy : {"to", "copy/file"})
            EXPECT_TRUE(!fs::exists(Path(szCopy)) || fs::file_size(Path(szCopy)) == dwSize);
        EXPECT_EQ(fs::exists(Path("copy")), fs::exists(Path("copy/file")));
        for (const fs::path& path : std::vector<fs::path>(fs::directory_iterator(root), {}))
            if (path.filename() != "from")
                fs::remove_all(path);
    }
}

TEST_F(FileTreeTest, IteratorsReportWhatTheyPromise) {
    MakeTree("tree");
    Write("tree/NOTES.txt");
    Write("tree/notes.TXT");
    const auto count = [](LFile::FolderIterator& iterator) {
        std::set<std::string> names;
        for (; iterator.IsOpen(); iterator.Next())
            names.insert(iterator.GetName());
        return names.size();
    };
    LFile::FolderIterator some;
    LFile::FolderIteratorAllFiles every;
    some.Open(Path("tree/NOTES.txt").c_str());
    EXPECT_EQ(count(some), 2U);
    every.Open(Path("tree").c_str());
    EXPECT_EQ(count(every), std::size(awkwardNames) + 7);
    some.Open(Path("tree").c_str());
    EXPECT_EQ(count(some), std::size(awkwardNames) + 3);
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
    LFile::MakeUniqueOrderedFilePath(szPath, root.c_str(), sLong.c_str(), "");
    EXPECT_EQ(std::string(szPath).size(), LPathBufferSize - 1);
    for (const char* szNew : {"x/y/z", "v/w/", "t//u//"})
        for (const bool bNew : {true, false})
            EXPECT_EQ(LFile::CreateFolderTree(Path(szNew).c_str()), bNew) << szNew;
    EXPECT_TRUE(fs::is_directory(Path("t/u")));
    EXPECT_FALSE(LFile::CreateFolderTree(Path("a.txt/below").c_str()));
    for (const unsigned dwLength : {259U, 260U}) { // a longer path could lead elsewhere when it is cut
        const std::string sPath = Path(std::string(dwLength - root.string().size() - 1, 'f'));
        EXPECT_EQ(LFile::CopyFile(Path("a.txt").c_str(), sPath.c_str()), dwLength == 259);
        fs::remove(sPath);
        EXPECT_EQ(LFile::CreateFolderTree(sPath.c_str()), dwLength == 259);
    }
}

TEST_F(FileTreeTest, TellsLocksAgesAndMarks) {
    Write("file");
    const std::string sFile = Path("file");
    EXPECT_FALSE(LFile::TestFileShareWriteBlocked(Path("missing").c_str()));
    EXPECT_TRUE(LFile::IsErrorFileNotFound());
    fs::create_symlink("nowhere", Path("old")); // its status cannot be read
    LFile::DeleteOldFiles(root.c_str(), "*", 0);
    EXPECT_TRUE(fs::is_symlink(Path("old")));
    LFile::DeleteOldFiles(root.c_str(), "*", 1); // the file was created just now
    EXPECT_TRUE(fs::exists(sFile));
    EXPECT_FALSE(fs::is_symlink(Path("old")));
    EXPECT_EQ(LFile::SetFileAttributeTextEncodingUTF8(Path("missing").c_str()), -1);
    fs::create_directory(Path("folder"));
    fs::create_symlink("file", Path("link"));
    const auto bLocked = [&](const char* szName) { return LFile::TestFileLocked(Path(szName).c_str()); };
    EXPECT_FALSE(bLocked("file") || bLocked("folder"));
    if (std::system(("cd '" + root.string() + "' && chattr +i file folder 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "files cannot be made immutable here";
    EXPECT_TRUE(bLocked("link") && bLocked("folder"));
    EXPECT_EQ(std::system(("chattr -i '" + Path("folder") + "'").c_str()), 0);
    EXPECT_FALSE(LFile::DeleteFolderTree(root.c_str()));
    EXPECT_TRUE(LFile::DeleteFolderTreeAlways(root.c_str()));
}

} // namespace
