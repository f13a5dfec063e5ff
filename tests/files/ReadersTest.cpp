#include "files/LFile.h"
#include "files/LProcessCopy.h"
#include "files/LReadFile.h"
#include "files/LReadFileBuffered.h"
#include "files/LWriteFile.h"
#include "files/LWriteFileBuffered.h"
#include "host/SystemCalls.h"
#include "support/Bundle.h"
#include "support/Recorder.h"
#include "support/TemporaryFolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <port/UniqueFd.h>
#include <random>
#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using port::sys::Call;
using port::sys::Verdict;
using Verdicts = std::function<Verdict(int)>; // by the number of the call

// What becomes of the calls that write while this lives.
struct Fault {
    explicit Fault(Verdicts calls) {
        verdicts = std::move(calls);
        nCall = 0;
        port::sys::setHook([](Call call) { return call == Call::Write ? verdicts(nCall++) : Verdict{}; });
    }
    ~Fault() { port::sys::setHook(nullptr); }
    static inline Verdicts verdicts;
    static inline int nCall;
};

const Verdicts fullFromSecond = [](int nCall) { return Verdict{nCall >= 1 ? ENOSPC : 0}; };

// Works in a folder of its own.
class ReadersTest : public testing::Test, protected TemporaryFolder {
protected:
    ReadersTest() { fs::current_path(root); }
    ~ReadersTest() override { fs::current_path("/"); }
    static port::UniqueFd Write(const std::string& sName, const std::string& sText) {
        std::ofstream(sName, std::ios::binary) << sText;
        return port::UniqueFd(open(sName.c_str(), O_RDWR | O_CLOEXEC));
    }
    // Line ends of all kinds and, from time to time, a run that no buffer holds.
    std::string RandomText() {
        std::string sText;
        for (auto n = random() % 1500; n != 0; --n)
            random() % 600 == 0 ? sText.append(random() % 9000, 'x') : sText += "ab\r\n\r\nc"[random() % 7];
        return sText;
    }
    std::mt19937 random{7};
};

// The line that a reader which knows these ends finds there, cut to the buffer; goes behind its end.
std::string NextLine(const std::string& sText, std::size_t& nAt, bool bLFCR, std::size_t nSize) {
    const std::size_t nEnd = std::min(sText.find_first_of("\r\n", nAt), std::max(sText.size(), nAt));
    std::string sLine = sText.substr(std::min(nAt, sText.size()), std::min(nEnd - nAt, nSize - 1));
    const std::string sPair = sText.substr(std::min(nEnd, sText.size()), 2);
    nAt = nEnd + (sPair == "\r\n" || (bLFCR && sPair == "\n\r") ? 2 : sPair.empty() ? 0 : 1);
    return sLine;
}

TEST_F(ReadersTest, ReadersFollowAModel) {
    std::string sText;
    while (sText.size() < 40000)
        sText += RandomText();
    sText.replace(LReadFileBufferSize - 1, 2, "\r\n"); // the end of a line in two buffers
    const auto file = Write("text", sText);
    LReadFileBuffered reader(file.get());
    LStringLongTemplate<char> line;
    std::size_t nAt = 0;
    for (int i = 0; i < 20000; ++i) {
        std::string sGot(
            std::array{1UL, 2UL, 4UL, 8UL, 3UL, 100UL, 256UL, 257UL, 8192UL, 9000UL}[random() % 10], '?');
        const std::string sNext = sText.substr(std::min(nAt, sText.size()), sGot.size());
        const std::size_t nNew = random() % (reader.GetFileSizeBytes64() + 10);
        const bool bMore = nAt < sText.size();
        const auto nWhat = i < 5000 ? 3 : random() % 10;
        if (nWhat < 3) // the reader without a buffer goes on where the other one is
            reader.SeekOffset64(nWhat == 0 ? static_cast<long long>(nNew - nAt) : 0);
        if (nWhat == 0) {
            nAt = nNew;
        } else if (nWhat == 1) {
            ASSERT_EQ(LReadFileRef(file.get()).ReadLine(line), bMore);
            ASSERT_EQ(line.GetText(), NextLine(sText, nAt, true, sText.size()));
        } else if (nWhat < 4) {
            const LReadFileRef direct(file.get());
            ASSERT_EQ(nWhat == 2 ? direct.ReadLine(sGot.data(), sGot.size())
                                 : reader.ReadLine(sGot.data(), sGot.size()),
                      bMore);
            ASSERT_EQ(sGot.c_str(), NextLine(sText, nAt, nWhat == 2, sGot.size()));
        } else {
            sGot.resize(nWhat == 4 ? reader.Peek(sGot.data(), sGot.size())
                                   : reader.Read(sGot.data(), sGot.size()));
            ASSERT_EQ(sGot, sNext);
            nAt += nWhat == 4 ? 0 : sNext.size();
        }
        ASSERT_EQ(reader.Tell64(), nAt) << "step " << i;
    }
}

TEST_F(ReadersTest, StringsWithALengthSurviveAndAreCutWithTheirFile) {
    const std::pair<std::size_t, std::string> rows[] = {
        {254, "\xFE"}, {255, "\xFF\xFF\0\0\0"s}, {70000, "\xFF\x70\x11\1\0"s}, {5, "\5"}};
    const auto file = Write("strings", "");
    std::string sAll;
    for (const auto& [n, sLength] : rows) {
        sAll += sLength + std::string(n, 'x');
        EXPECT_EQ(LWriteFileRef(file.get()).WriteStringLenUTF8(std::string(n, 'x').c_str()), long(n));
    }
    EXPECT_EQ(FileText("strings"), sAll);
    for (const std::size_t nCut : {sAll.size(), sAll.size() - 3, 60000UL, 600UL, 256UL, 255UL}) {
        ASSERT_EQ(truncate("strings", static_cast<off_t>(nCut)), 0);
        lseek(file.get(), 0, SEEK_SET);
        std::size_t nText = 0; // where the text of the record begins
        for (const auto& [n, sLength] : rows) {
            char buffer[260];
            LReadFileRef(file.get()).ReadStringLenUTF8(buffer);
            nText += sLength.size();
            EXPECT_EQ(std::strlen(buffer), std::min({n, nCut - std::min(nCut, nText), 259UL})) << nCut;
            nText += n;
        }
    }
}

TEST_F(ReadersTest, BlocksMoveInPiecesAndWritersTellWhatIsMissing) {
    const auto file = Write("text", "");
    LWriteFileRef writer(file.get());
    LReadFileRef reader(file.get());
    EXPECT_EQ(fprintf(writer, "%s %d", std::string(25000, 'x').c_str(), 7), 25002U);
    std::string sRead(25003, '?');
    LWriteFileRef(Write("lines", "").get()).WriteLineCRLF("a");
    EXPECT_EQ(FileText("lines"), "a\r\n");
    Recorder stopped(0), stoppedLater(2), process;
    lseek(file.get(), 0, SEEK_SET);
    EXPECT_EQ(LProcessFileRead(process, reader, sRead.data(), 25003), LProcessFailed);
    EXPECT_EQ(sRead, std::string(25000, 'x') + " 7?");
    EXPECT_EQ(LProcessFileWrite(stopped, writer, sRead.data(), 0), LProcessFinished);
    EXPECT_EQ(LProcessFileWrite(stoppedLater, writer, sRead.data(), 25000), LProcessStopped);
    EXPECT_EQ(stoppedLater.sTold, "|0.409600|0.819200");
    const Fault fault(fullFromSecond);
    EXPECT_EQ(LProcessFileWrite(process, writer, sRead.data(), 25000), LProcessFailed);
    EXPECT_EQ(fs::file_size("text"), 25002U + 3 * 10240);
    EXPECT_FALSE(writer.WriteString("x"));
    const Fault once([](int nCall) { return Verdict{nCall == 0 ? ENOSPC : 0}; });
    EXPECT_EQ(writer.WriteStringLenUTF8("x"), -1) << "no text without its length";
    EXPECT_TRUE(LWriteFileRef().WriteString("") && !LWriteFileRef().WriteString("x"));
}

TEST_F(ReadersTest, CopiesAFileAndReportsEveryPiece) {
    const std::pair<std::size_t, std::string> rows[] = {{0, ""},
                                                        {1, "|0.000000"},
                                                        {32769, "|0.000000|0.999969"},
                                                        {100000, "|0.000000|0.327680|0.655360|0.983040"}};
    umask(022);
    // The kernel copies all, refuses to copy, copies a part and leaves the rest.
    for (const auto& [nFirst, nMost] : {std::pair(0, ~0UL), std::pair(EXDEV, ~0UL), std::pair(0, 20000UL)})
        for (const auto& [nSize, sProgress] : rows) {
            Write("from", std::string(nSize, 'x'));
            fs::last_write_time("from", fs::file_time_type::clock::now() - std::chrono::hours(5));
            if (nSize == 1)
                fchmod(Write("to", "much longer text").get(), 0600);
            Recorder process;
            const Fault fault([nFirst = nFirst, nMost = nMost, nSize = nSize](int nCall) {
                EXPECT_TRUE(LFile::TestFileShareWriteBlocked("to") &&
                            LFile::TestFileShareWriteBlocked("from"));
                return Verdict{nCall == 0 && nSize > 1 ? nFirst : 0, nMost};
            });
            EXPECT_EQ(Process(process, LProcessCopyFile{"from", "./to"}), LProcessFinished);
            EXPECT_EQ(process.sTold, "|0Copy File|1to|0.000000" + sProgress);
            struct stat from, to;
            ASSERT_TRUE(stat("from", &from) == 0 && stat("to", &to) == 0);
            EXPECT_TRUE(to.st_mtim.tv_sec == from.st_mtim.tv_sec && to.st_mtim.tv_nsec == 0);
            EXPECT_GE(to.st_atime, from.st_mtime + 3600) << "the target's own";
            EXPECT_EQ(to.st_mode & 0777, nSize == 1 ? 0600U : 0644U);
            EXPECT_EQ(FileText("to"), FileText("from"));
            fs::remove("to");
        }
}

TEST_F(ReadersTest, HolesStayHoles) {
    Write("from", "start");
    fs::resize_file("from", 8 << 20);
    std::ofstream("from", std::ios::in | std::ios::out).seekp((5 << 20) + 5) << std::string(9000, 'x');
    LProcessInterfaceVoid process;
    struct stat from, to;
    for (const bool bProcess : {false, true}) {
        EXPECT_TRUE(bProcess ? Process(process, LProcessCopyFile{"from", "to"}) == LProcessFinished
                             : LFile::CopyFile("from", "to"));
        ASSERT_TRUE(stat("from", &from) == 0 && stat("to", &to) == 0);
        EXPECT_EQ(to.st_blocks, from.st_blocks);
        EXPECT_TRUE(FileText("from") == FileText("to"));
        fs::remove("to");
    }
}

TEST_F(ReadersTest, AFailedCopyLeavesNoTargetAndNoOtherHarm) {
    fs::create_directory("folder");
    Write("from", std::string(100000, 'x'));
    fs::create_hard_link("from", "hard");
    fs::create_symlink("from", "soft");
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    fs::create_symlink("new", "dangling");
    Recorder process, stopped(1);
    const LProcessCopyFile rows[] = {{"from", "./from"},  {"from", "folder/../from"}, {"hard", "./from"},
                                     {"from", "./soft"},  {"from", "missing/to"},     {"from", "./folder"},
                                     {"missing", "./to"}, {"folder", "./to"},         {"from", "pipe"},
                                     {"from", "dangling"}};
    for (const LProcessCopyFile& row : rows)
        EXPECT_EQ(Process(process, row), LProcessFailed) << row.szSource << " to " << row.szTarget;
    EXPECT_EQ(Process(process, LProcessCopyFile{"pipe", "./empty"}), LProcessFinished);
    EXPECT_EQ(FileText("from"), std::string(100000, 'x'));
    EXPECT_EQ(Process(stopped, LProcessCopyFile{"from", "./to"}), LProcessStopped);
    const auto Shrink = [](int nCall) { return Verdict{nCall == 1 ? truncate("from", 40000) : 0}; };
    for (const Verdicts& verdicts : {fullFromSecond, Verdicts(Shrink)}) {
        const Fault fault(verdicts);
        Write("to", "old");
        EXPECT_EQ(Process(process, LProcessCopyFile{"from", "./to"}), LProcessFailed);
        EXPECT_FALSE(fs::exists("missing") || fs::exists("to"));
    }
}

TEST_F(ReadersTest, CopiesATreeWithNestedProgress) {
    fs::create_directories("from/b/c");
    fs::create_directory("empty");
    fs::create_directories("long/" + std::string(200, 'x'));
    Recorder none, process, stopped(1);
    EXPECT_EQ(Process(none, LProcessCopyFolder{"empty", "to"}), LProcessFinished);
    EXPECT_TRUE(none.sTold.empty() && !fs::exists("to"));
    Write("from/b/c/.file", std::string(40000, 'x'));
    Write("from/b/c/\xC3\xA4 \"`$", std::string(40000, 'y'));
    for (const std::size_t nLength : {53, 60}) // cut to its path, the longer name is the shorter one
        Write("long/" + std::string(200, 'x') + "/" + std::string(nLength, 'y'), "");
    EXPECT_EQ(Process(process, LProcessCopyFolder{"from", "a/to"}), LProcessFinished);
    EXPECT_EQ(std::system("diff -r from a/to"), 0);
    EXPECT_NE(process.sTold.find("|0.000000|0.000000|0.409600|3Copy File|4"), std::string::npos);
    EXPECT_TRUE(process.sTold.ends_with("|0.500000|0.500000|0.909600")) << process.sTold;
    EXPECT_EQ(Process(process, LProcessCopyFolder{"from", "a/to"}), LProcessFinished) << "merges";
    EXPECT_EQ(Process(stopped, LProcessCopyFolder{"from/b/c", "empty"}), LProcessStopped);
    const LProcessCopyFolder rows[] = {
        {"from", "from"},     {"from", "from/b/c"},        {"from", "from/b/new/to"},
        {"missing", "empty"}, {"from/b/c/.file", "empty"}, {"long", "a"}};
    for (const LProcessCopyFolder& row : rows)
        EXPECT_EQ(Process(none, row), LProcessFailed) << row.szSource << " to " << row.szTarget;
    EXPECT_FALSE(fs::exists("from/b/c/b/c/b") || fs::exists("from/b/new/to/b/new/to/b"));
}

TEST_F(ReadersTest, ATreeCopyNamesWhatItLeavesOutAndFollowsNoLinkOutOfTheTree) {
    fs::permissions(root, fs::perms::all);
    ASSERT_EQ(seteuid(geteuid() == 0 ? 65534 : geteuid()), 0); // root may read everything
    fs::create_directories("from/folder/below");
    fs::create_directories("from/closed");
    fs::create_directories("from/pipe in the way");
    fs::create_directory("to");
    fs::create_directory("outside");
    for (const char* szName : {"from/file", "from/folder/below/file", "from/secret", "from/planted",
                               "from/planted folder", "from/blocked", "outside/victim"})
        Write(szName, szName);
    fs::remove("from/planted folder");
    fs::create_directory("from/planted folder");
    Write("from/planted folder/victim", "evil");
    const std::pair<const char*, const char*> links[] = {{"file", "from/link"},
                                                         {"folder", "from/folder link"},
                                                         {"../file", "from/folder/up"},
                                                         {"nowhere", "from/dangling"},
                                                         {"loop", "from/loop"},
                                                         {"..", "from/folder/loop"},
                                                         {"../outside", "from/out"},
                                                         {"../outside/victim", "from/out file"},
                                                         {"../outside", "to/planted folder"},
                                                         {"../outside/victim", "to/planted"}};
    for (const auto& [szTo, szLink] : links)
        fs::create_symlink(szTo, szLink);
    ASSERT_TRUE(mkfifo("from/pipe", 0600) == 0 && mkfifo("to/blocked", 0600) == 0);
    chmod("from/closed", 0);
    chmod("from/secret", 0);
    Recorder process;
    EXPECT_EQ(Process(process, LProcessCopyFolder{"from", "to"}), LProcessFailed);
    const std::string sReports = process.sTold;
    for (const char* szLeftOut : {"dangling", "loop", "folder/loop", "folder link/loop", "out", "out file",
                                  "planted", "planted folder", "pipe", "blocked", "closed", "secret"})
        EXPECT_NE(sReports.find("|from/" + std::string(szLeftOut) + " is not copied: "), std::string::npos)
            << szLeftOut;
    EXPECT_EQ(FileText("outside/victim"), "outside/victim");
    for (const char* szFile : {"file", "link", "folder/up", "folder link/up"})
        EXPECT_EQ(FileText("to/" + std::string(szFile)), "from/file") << szFile;
    EXPECT_EQ(FileText("to/folder link/below/file"), "from/folder/below/file");
    for (const char* szMissing :
         {"to/out", "to/out file", "to/secret", "to/dangling", "to/folder/loop", "to/pipe"})
        EXPECT_FALSE(fs::exists(szMissing)) << szMissing;
    chmod("from", 0); // what cannot be listed at all is told
    process.sTold.clear();
    EXPECT_EQ(Process(process, LProcessCopyFolder{"from", "to"}), LProcessFinished);
    EXPECT_TRUE(process.sTold.starts_with("|from/ is not copied: "));
    chmod("from", 0700);
    chmod("from/closed", 0700);
    EXPECT_EQ(seteuid(getuid()), 0);
}

TEST_F(ReadersTest, ABufferedWriterWritesWhatItWasGivenOrSaysThatItDidNot) {
    const auto file = Write("lines", "");
    std::string sAll;
    {
        LWriteFileBuffered writer(file.get());
        for (int i = 0; i < 3000; ++i) {
            const std::string sText(random() % 50 == 0 ? random() % 30000 : random() % 100, "abc"[i % 3]);
            const auto nWhat = random() % 4;
            if (nWhat == 0) {
                EXPECT_EQ(fprintf(writer, "%d%s", i, sText.c_str()), std::to_string(i).size() + sText.size());
                sAll += std::to_string(i) + sText;
                continue;
            }
            EXPECT_TRUE(nWhat == 1   ? writer.Write(sText.data(), sText.size())
                        : nWhat == 2 ? writer.WriteLineLF(sText.c_str())
                                     : writer.WriteLineCRLF(sText.c_str()));
            sAll += sText + std::array{"", "\n", "\r\n"}[nWhat - 1];
        }
    }
    EXPECT_TRUE(FileText("lines") == sAll);
    LWriteFileBuffered writer(file.get());
    const Fault fault(fullFromSecond);
    EXPECT_TRUE(writer.WriteString("x") && writer.Flush() && writer.WriteString("x"));
    EXPECT_FALSE(writer.Flush() || writer.WriteString("x") || writer.Flush());
    EXPECT_FALSE(LWriteFileBuffered().WriteString(std::string(9000, 'x').c_str()));
}

} // namespace
