// The command lines of ordinary names, and the real tools on names and archives that mean harm. All of it in a
// home folder whose path does, with a temporary folder that must be empty at the end.
#include <gtest/gtest.h>
#include <port/UniqueFd.h>
#include <port/internal/seams_shell.h>
#include <pty.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "files/LFile.h"
#include "support/Bundle.h"
#include "support/ChildProcess.h"
#include "support/Recorder.h"
#include "zip/LProcessZip.h"

namespace {

namespace fs = std::filesystem;

constexpr char Hostile[] = "ho\"me `touch pwned` $(touch pwned)\n$HOME [1]* ?'&;|<>#";

std::string ran; // "FOLDER: LINE" each, with the content of the exclusion list behind its path
int failures = 0;

int Record(const char* commandLine) {
    const std::string line = commandLine;
    const std::size_t list = line.find(" -x@");
    ran += std::filesystem::current_path().filename().string() + ": " + line.substr(0, list) + "\n";
    for (const auto& entry : std::filesystem::directory_iterator(std::getenv("XDG_CACHE_HOME")))
        ran += FileText(entry.path());
    return failures-- > 0 ? 12 << 8 : 0;
}

class Zip : public testing::Test {
protected:
    Zip() {
        std::filesystem::create_directories(root / "cache");
        setenv("XDG_CACHE_HOME", (root / "cache").c_str(), 1);
        std::filesystem::current_path(root);
        for (const char* variable : {"ZIP", "ZIPOPT", "UNZIP", "UNZIPOPT"})
            setenv(variable, variable[0] == 'Z' ? "-m" : "-l", 1); // would delete, or only list
    }
    void TearDown() override {
        EXPECT_EQ(std::filesystem::current_path(), root);
        EXPECT_EQ(Count("cache"), 0);
        std::filesystem::current_path("/");
    }
    void Write(const std::string& path, const std::string& text) const {
        std::filesystem::create_directories((root / path).parent_path());
        std::ofstream(root / path) << text;
    }
    long Count(const std::string& path) const {
        return std::distance(std::filesystem::directory_iterator(root / path), {});
    }
    // Runs these lines on the archive; what they print.
    std::string Python(const std::string& lines) const {
        const std::string program = "import sys, zipfile\npath, root = sys.argv[1:]\n" + lines;
        return ChildProcess({"/usr/bin/python3", "-c", program, archive, root}).ReadAll();
    }

    const TemporaryFolder folder;
    const std::filesystem::path root = folder.root / Hostile;
    const std::string archive = root / "a[1]*.zip";
};

TEST_F(Zip, LinesOfOrdinaryNames) {
    const std::string patterns = "*.DS_Store*\n*.svn*\n*.git*\n";
    Write("b/x", "");
    const std::string inTemporary = root / "cache/folder";
    const std::string home = std::string(Hostile) + ": /usr/bin/";
    const char* file = "b/Thing.app";
    const auto expect = [](bool succeeds, bool succeeded, const std::string& lines) {
        EXPECT_EQ(succeeds, succeeded) << lines;
        EXPECT_EQ(ran, lines);
        ran.clear();
    };
    port_set_shell_hook(Record);
    expect(true, LZipFileAdd("/z.zip", file, "", false, 'x', nullptr, false),
           "b: /usr/bin/zip -r -y \"/z.zip\" \"Thing.app\"\n" + patterns);
    failures = 1;
    expect(false, LZipFileAdd("/z.zip", file, "", true, '7', nullptr, true),
           "b: /usr/bin/zip -r -f -y \"/z.zip\" \"Thing.app\"\n");
    expect(true, LZipFileAddFolder("/z.zip", inTemporary.c_str(), "b", false),
           "b: /usr/bin/zip -r -y \"/z.zip\" \"folder\"\n" + patterns);
    expect(true, LZipFileDelete("/z.zip", "/a/../e"), home + "zip -d \"/z.zip\" \"/a/../e\"\n" + patterns);
    failures = 1;
    expect(true, LZipFileDeleteFolder("/z.zip", "a\\c.d"),
           home + "zip -d \"/z.zip\" \"a/c.d/*\" \n" + home + "zip -d \"/z.zip\" \"c/*\" \n");
    expect(true, LZipFileExtractAllFiles("/z.zip", "/d"), home + "unzip -o \"/z.zip\" -d \"/d\"\n");
    expect(true, LZipFileExtract("/z.zip", "e", "/d"), home + "unzip -o \"/z.zip\" \"e\" -d \"/d\"\n");
    LZipFile zip("/folder/z.zip", false);
    zip.AddFile("/x/one");
    zip.AddFile("/y/two");
    zip.SetNoExclusionList(true);
    const std::string line = home + "zip -y \"/folder/z.zip\" \"two\" \"one\"\n";
    failures = 1;
    expect(false, zip.Save(), line);
    expect(true, zip.HasWork() && zip.Save() && !zip.HasWork() && *zip.GetBaseFolder() == '\0', line);
    port_set_shell_hook(nullptr);
}

TEST_F(Zip, NamesAreNamesAndNothingElse) {
    const std::string all =
        "$(touch pwned)|$HOME|'|-|-T|-TTtouch pwned|-m|-x|@|`touch pwned`|a b |a*|a?|a[b]|ab|"
        "line\nfeed|q\"; touch pwned; \"|~|";
    Write("a1.zip", "a decoy that the archive's name would match as a pattern");
    LZipFile zip(archive.c_str(), false);
    std::vector<std::string> names;
    for (std::size_t at = 0, end; (end = all.find('|', at)) != std::string::npos; at = end + 1) {
        names.push_back(all.substr(at, end - at));
        Write("in/" + names.back(), "text of " + names.back());
        zip.AddFile((root / "in" / names.back()).c_str());
    }
    ASSERT_TRUE(zip.Save());
    EXPECT_EQ(Python("print(*sorted(zipfile.ZipFile(path).namelist()), sep='|', end='|')"), all);
    for (const std::string& name : names) {
        EXPECT_EQ(FileText(root / "in" / name), "text of " + name) << "still there";
        const std::string out = "-out" + std::to_string(&name - names.data());
        EXPECT_TRUE(LZipFileExtract(archive.c_str(), name.c_str(), out.c_str())) << name;
        // The tool drops the line feed.
        EXPECT_EQ(FileText(root / out / (name == "line\nfeed" ? "linefeed" : name)), "text of " + name);
        EXPECT_EQ(Count(out), 1) << "and no other";
    }
    for (const char* szEntry : {"a*", "a[b]", "-TTtouch pwned"})
        EXPECT_TRUE(LZipFileDelete(archive.c_str(), szEntry)) << szEntry;
    EXPECT_FALSE(LZipFileDelete(archive.c_str(), "l*")) << "no pattern";
    EXPECT_TRUE(LZipFileAddFolder(archive.c_str(), "in", root.c_str(), true));
    EXPECT_TRUE(LZipFileDeleteFolder(archive.c_str(), "in"));
    EXPECT_EQ(Python("print(len(zipfile.ZipFile(path).namelist()), end='')"),
              std::to_string(names.size() - 3));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.root))
        EXPECT_NE(entry.path().filename(), "pwned") << entry.path();
}

TEST_F(Zip, HostileArchivesStayInTheDestination) {
    Write("outside/mine", "mine");
    std::filesystem::create_directory(root / "out");
    Python("archive, link = zipfile.ZipFile(path, 'w'), zipfile.ZipInfo('link')\n"
           "link.create_system, link.external_attr = 3, 0o120777 << 16\n"
           "archive.writestr(link, root + '/outside')\n"
           "for name in ['link/mine', '../outside/mine', '../../up', root + '/outside/mine']:\n"
           "    archive.writestr(name, 'theirs')\n");
    for (int times = 0; times < 2; ++times)
        LZipFileExtractAllFiles(archive.c_str(), "out/deep");
    EXPECT_EQ(FileText(root / "out/deep/up"), "theirs");
    EXPECT_EQ(FileText(root / "outside/mine"), "mine");
    EXPECT_EQ(Count("outside"), 1);
    EXPECT_EQ(Count("."), 4) << "cache, archive, outside, out";
}

TEST_F(Zip, NoLinkThatWasThereBeforeLeadsOut) {
    const auto make = [this](const std::string& names) {
        Python("archive = zipfile.ZipFile(path, 'w')\n"
               "for name in [" +
               names + "]: archive.writestr(name, 'theirs')\n");
        return archive.c_str();
    };
    Write("outside/mine", "mine");
    Write("out/closed/link", "");
    Write("out/file", "old");
    ASSERT_TRUE(LZipFileExtractAllFiles(make("'file', 'closed/new'"), "out"));
    fs::remove(root / "out/closed/link");
    for (const char* name : {"link", "closed/link"})
        fs::create_directory_symlink(root / "outside", root / "out" / name);
    fs::create_symlink(root / "outside/mine", root / "out/one");
    for (const char* names :
         {"'a', 'link/mine'", "'b', 'closed/link/new'", "'closed/../li\\x01nk/mine'", "'link/'"}) {
        EXPECT_FALSE(LZipFileExtractAllFiles(make(names), "out")) << names;
        EXPECT_EQ(Count("out"), 4) << "nothing of it: closed, file, link, one";
    }
    EXPECT_TRUE(
        LZipFileExtractAllFiles(make("'one', 'file', 'closed/new', 'closed/deep/x', 'other/x'"), "out"));
    for (const char* file : {"one", "file", "closed/new", "closed/deep/x", "other/x"})
        EXPECT_EQ(FileText(root / "out" / file), "theirs") << file;
    EXPECT_EQ(FileText(root / "outside/mine"), "mine");
    EXPECT_EQ(Count("outside"), 1);
    EXPECT_EQ(Count("out"), 5);
}

TEST_F(Zip, WhatIsTooMuchForTheToolsIsNot) {
    LZipFile zip(archive.c_str(), false);
    for (int i = 0; i < 2000; ++i) {
        const std::string name = std::string(100, 'n') + std::to_string(i);
        Write("in/" + name, "");
        zip.AddFile((root / "in" / name).c_str());
    }
    Write("in/large", std::string(1 << 20, 'x'));
    zip.AddFile((root / "in/large").c_str());
    EXPECT_TRUE(zip.Save());
    EXPECT_EQ(Python("print(len(zipfile.ZipFile(path).namelist()), end='')"), "2001");
    zip.SetUnpackLimit(1 << 20);
    const bool wasTooMuch = !zip.ExtractAllFiles("out");
    EXPECT_TRUE(wasTooMuch || geteuid() != 0)
        << "the tool's messages count, too; but others are not told of its end";
    zip.SetUnpackLimit(2 << 20);
    EXPECT_TRUE(zip.ExtractAllFiles("out"));
}

TEST_F(Zip, NoToolAsksATerminal) {
    Write("in", "text");
    ChildProcess({"/usr/bin/env", "-u", "ZIP", "-u", "ZIPOPT", "/usr/bin/zip", "-P", "secret", archive, "in"})
        .Wait();
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        alarm(20);
        _exit(LZipFileExtractAllFiles(archive.c_str(), "out") ? 0 : 1);
    }
    const port::UniqueFd fd(terminal);
    int status = 0;
    EXPECT_TRUE(waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 1)
        << status;
}

struct Stopping : Recorder {
    int ProcessWaitSignal(LSignalObjectRef, unsigned int) override { return LProcessWaitStopped; }
};

TEST_F(Zip, AStopEndsTheTool) {
    Stopping reports;
    reports.nQuestions = 0;
    ASSERT_EQ(mkfifo(archive.c_str(), 0600), 0); // a tool that opens it waits without end
    EXPECT_EQ(Process(reports, LProcessZipFileExtractAll(archive.c_str(), "out")), LProcessStopped);
    EXPECT_EQ(reports.sTold, "|0.000000|0a[1]*.zip");
}

TEST_F(Zip, ProcessesReport) {
    Recorder reports(4);
    Write("in/one", "1");
    Write("in/two", "2");
    LProcessZipFileAdd add(archive.c_str(), "");
    EXPECT_EQ(Process(reports, add), LProcessFinished);
    EXPECT_TRUE(LZipFileCreate(archive.c_str()));
    EXPECT_EQ(FileText(archive), std::string("PK\x05\x06", 4) + std::string(18, '\0'));
    for (const char* path : {"gone", "in/two", "", "in/one"})
        add.AddFile(path);
    EXPECT_EQ(Process(reports, add), LProcessFailed);
    EXPECT_EQ(Process(reports, add), LProcessStopped);
    EXPECT_EQ(reports.sTold, "|0.000000|0.000000|0one|0.000000|0two|0.250000|0gone|"
                             "File does not exist: \"gone\"|0.000000");
}

} // namespace
