#include "files/LFile.h"
#include "host/SystemCalls.h"
#include "strings/LTextFile.h"
#include "support/Bundle.h"
#include "support/TemporaryFolder.h"

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <random>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;
using port::sys::Call;

// Works in a folder of its own.
class TextFileTest : public testing::Test, protected TemporaryFolder {
protected:
    TextFileTest() { fs::current_path(root); }
    ~TextFileTest() override { fs::current_path("/"); }
};

std::string Bytes(const LStringLongTemplate<char>& text) {
    return {text.GetText(), text.GetLength()};
}

// A unit is a character, surrogates too, and a 0 ends converted text.
constexpr char szOracle[] = R"(
import codecs, os, struct
def text(b, order):
    units = struct.unpack('%s%dH' % (order, len(b) // 2), b[:len(b) // 2 * 2])
    return ''.join(map(chr, units)).split('\0')[0].encode('utf-8', 'surrogatepass')
for path in os.listdir('.'):
    b = open(path, 'rb').read()
    order = {codecs.BOM_UTF16_LE: '<', codecs.BOM_UTF16_BE: '>'}.get(b[:2])
    marked = b[3:].split(b'\0')[0] if b.startswith(codecs.BOM_UTF8) else b
    results = {'raw': b, 'utf16': text(b, '<'), 'unicode': text(b[2:], order) if order else text(b, '<'),
               'auto': text(b[2:] + b'\0' * (len(b) % 2), order) if order else marked}
    for name, result in results.items():
        open(path + '.' + name, 'wb').write(result)
)";

TEST_F(TextFileTest, LoadsEveryMarkAsPythonDoes) {
    constexpr std::string_view sOdd("\0\0a\xD8", 4);
    std::vector<std::string> texts;
    std::mt19937 random(3);
    for (const char* szStart : {"", "\xFF", "\xEF\xBB", "\xEF\xBB\xBF", "\xFF\xFE", "\xFE\xFF"})
        for (const int nSize : {0, 1, 2, 3, 4, 5, 8, 10, 11, 33, 32766, 32767, 32768, 32769, 98311}) {
            texts.emplace_back(szStart);
            for (int i = 0; i < nSize; ++i)
                texts.back() += nSize % 3 == 0 ? 'a'
                                : nSize < 33   ? sOdd[random() % 4]
                                               : static_cast<char>(1 + random() % 255);
        }
    for (std::size_t i = 0; i < texts.size(); ++i)
        std::ofstream(std::to_string(i)) << texts[i];
    ASSERT_EQ(std::system(("python3 - <<'END'"s + szOracle + "END").c_str()), 0);
    ASSERT_EQ(mkfifo("pipe", 0600), 0);

    const auto Auto = [](const char* path, LStringLongTemplate<char>& text) {
        return int{LLoadTextAutoChar(path, text)};
    };
    const std::pair<const char*, int (*)(const char*, LStringLongTemplate<char>&)> loaders[] = {
        {".raw", LLoadText}, {".utf16", LLoadTextAsUTF16}, {".unicode", LLoadTextUnicode}, {".auto", Auto}};
    for (const auto& [szName, load] : loaders) {
        LStringLongTemplate<char> text;
        for (std::size_t i = 0; i < texts.size(); ++i) {
            EXPECT_EQ(load(std::to_string(i).c_str(), text), 1);
            EXPECT_EQ(Bytes(text), FileText(std::to_string(i) + szName)) << i << szName;
        }
        text = "kept";
        EXPECT_TRUE(load("missing", text) == 0 && Bytes(text) == "kept");
        for (const char* szOpens : {".", "pipe"}) // they open, and nobody waits for who writes into the pipe
            EXPECT_TRUE(load(szOpens, text) == 1 && Bytes(text).empty()) << szName;
        // It loses its end meanwhile, and comes bit by bit.
        std::ofstream("file") << "\xFF\xFE" + std::string(9000, 'x');
        port::sys::setHook([](Call call) -> port::sys::Verdict {
            EXPECT_TRUE(call != Call::Read || LFile::TestFileShareWriteBlocked("file"));
            return {truncate("file", 3001), 1000};
        });
        EXPECT_EQ(load("file", text), 1);
        port::sys::setHook(nullptr);
        EXPECT_TRUE(text.GetLength() >= 2998 && text.GetLength() <= 4503) << text.GetLength() << szName;
    }
}

TEST_F(TextFileTest, SavesAndMarks) {
    LStringLongTemplate<char> text;
    text = "a_b";
    text.GetData()[1] = '\0';
    port::sys::setHook([](Call call) -> port::sys::Verdict {
        // It is locked, and not only against other writers.
        EXPECT_TRUE(call != Call::Write || port_open("file", O_RDONLY | O_NONBLOCK | O_SHLOCK) == -1);
        return {0, 1};
    });
    const int nMarked = LSaveAppendText("file", "first");
    EXPECT_EQ(nMarked, getxattr("file", "user.com.apple.TextEncoding", nullptr, 0) == 15 ? 0 : -1);
    EXPECT_EQ(LSaveAppendText("file", text), nMarked);
    EXPECT_EQ(FileText("file"), "firsta\0b"s);
    EXPECT_EQ(LSaveText("file", text), nMarked);
    EXPECT_EQ(FileText("file"), "a\0b"s);
    port::sys::setHook(nullptr);
    EXPECT_EQ(LSaveText("missing/file", "x"), -1);
    for (const auto& [sText, sBytes] : {std::pair(""s, "\xFF\xFE"s),
                                        {"\xE2\x82\xAC", "\xFF\xFE\xAC\x20"},
                                        {"\xF0\x9F\x98\x80", "\xFF\xFE\0\xF6"s},
                                        {"ab\xFFz", "\xFF\xFE\x61\0b\0"s}}) {
        text = sText.c_str();
        LSaveTextAsUnicodeBOM("unicode", text);
        EXPECT_EQ(FileText("unicode"), sBytes) << sText;
    }
}

// Which call fails, after how many that do not, and the error.
Call failing;
int nBefore, nError;

TEST_F(TextFileTest, TheOldTextStaysWhenTheNewOneCannotBeSaved) {
    LStringLongTemplate<char> text;
    text = "new";
    const auto save = [](const char* path) { return LSaveText(path, "new"); };
    const auto append = [](const char* path) { return LSaveAppendText(path, "new"); };
    const auto units = [&](const char* path) { return LSaveTextAsUnicodeBOM(path, text); };
    const auto safely = [](const char* path) { return LSaveTextSafe(path, "new") ? 0 : -1; };
    std::ofstream("old") << "old";
    std::ofstream("two") << "two";
    fs::create_hard_link("two", "names");
    fs::create_symlink("old", "link");
    chmod("old", 0640);
    const int nMarked = setxattr("old", "user.note", "1", 1, 0);
    const std::vector<std::function<int(const char*)>> savers = {save, append, units, safely};
    for (const auto& [eCall, nCalls, nErrno] : {std::tuple{Call::Write, 1, ENOSPC},
                                                {Call::Write, 1, EIO},
                                                {Call::Rename, 0, EIO},
                                                {Call::Fsync, 0, EIO}})
        for (std::size_t i = 0; i < savers.size(); ++i)
            for (const char* szName : {"old", "two", "link", "missing"}) {
                const bool bMet =
                    eCall == Call::Write || (eCall == Call::Fsync && i == 3) ||
                    (eCall == Call::Rename && i != 1 && szName != "missing"s && (szName != "two"s || i == 3));
                if (!bMet)
                    continue;
                std::tie(failing, nBefore, nError) = std::tuple(eCall, nCalls, nErrno);
                port::sys::setHook([](Call call) -> port::sys::Verdict {
                    return {call == failing && nBefore-- <= 0 ? nError : 0, 2};
                });
                EXPECT_EQ(savers[i](szName), -1) << i << szName << static_cast<int>(eCall);
                port::sys::setHook(nullptr);
                EXPECT_TRUE(FileText("old") == "old" && FileText("two") == "two") << i << szName;
                EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 4) << i << szName;
            }
    EXPECT_EQ(safely("link"), 0);
    EXPECT_EQ(save("two"), safely("missing"));
    EXPECT_TRUE(FileText("old") == "new" && FileText("names") == "new" && FileText("missing") == "new");
    EXPECT_EQ(fs::status("old").permissions(), fs::perms(0640));
    EXPECT_EQ(getxattr("old", "user.note", nullptr, 0), nMarked == 0 ? 1 : -1);
    EXPECT_TRUE(fs::is_symlink("link"));
}

// It waits for the lock of a file that meanwhile loses its name.
TEST_F(TextFileTest, NothingIsAddedToAFileThatWasReplaced) {
    std::ofstream("file") << "old";
    std::ofstream("new") << "new";
    port::UniqueFd held(port_open("file", O_RDONLY | O_EXLOCK));
    std::thread adder([] { LSaveAppendText("file", "more"); });
    const auto opened = [&] {
        return std::count_if(fs::directory_iterator("/proc/self/fd"), {}, [&](const fs::path& descriptor) {
            std::error_code ignored;
            return fs::read_symlink(descriptor, ignored) == root / "file";
        });
    };
    while (opened() != 2)
        std::this_thread::yield();
    fs::rename("new", "file");
    held.reset();
    adder.join();
    EXPECT_EQ(FileText("file"), "newmore");
}

} // namespace
