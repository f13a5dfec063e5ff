// Lines, copies with progress and whole text files beside what one would use instead. All files are in memory.
#include "Driver.h"
#include "MemoryFolder.h"

#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <files/LProcessCopy.h>
#include <files/LReadFileBuffered.h>
#include <files/LWriteFile.h>
#include <files/LWriteFileBuffered.h>
#include <fstream>
#include <iconv.h>
#include <memory>
#include <port/UniqueFd.h>
#include <port/transfer.h>
#include <random>
#include <strings/LTextFile.h>
#include <sys/stat.h>
#include <threads/LThread.h>
#include <vector>

namespace bench {
namespace {

constexpr std::size_t kMegabyte = 1000 * 1000;
constexpr std::size_t kLinesSize = 200 * kMegabyte;
constexpr std::size_t kTextSize = 100 * kMegabyte;
constexpr std::size_t kLargeFile = std::size_t{512} << 20;
constexpr std::size_t kLongestLine = 120; // bytes; half of it on average

port::UniqueFd openToRead(const std::string& path) {
    return port::UniqueFd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
}

// The files of this program's cases, each made when it is first asked for.
class Files {
public:
    std::string lines() {
        return make("lines", [](std::ofstream& out) {
            std::mt19937 random(1);
            const std::string text(kLongestLine, 'x');
            for (std::size_t done = 0, length = 0; done < kLinesSize; done += length + 1) {
                length = random() % (kLongestLine + 1);
                out.write(text.data(), static_cast<std::streamsize>(length)).put('\n');
            }
        });
    }
    std::string large() {
        return make("large",
                    [](std::ofstream& out) { fill(out, "", std::string(1 << 16, 'x'), kLargeFile); });
    }
    std::string text(const char* name, const std::string& mark, const std::string& unit) {
        return make(name, [&](std::ofstream& out) {
            std::string block;
            while (block.size() < kMegabyte)
                block += unit;
            fill(out, mark, block, kTextSize);
        });
    }
    std::string target() {
        unlink((folder_ / "target").c_str());
        return folder_ / "target";
    }

private:
    static void fill(std::ofstream& out, const std::string& start, const std::string& block,
                     std::size_t size) {
        out << start;
        for (std::size_t done = 0; done < size; done += block.size())
            out << block;
    }
    template <typename Fill>
    std::string make(const char* name, Fill fillIn) {
        std::string path = folder_ / name;
        if (!std::filesystem::exists(path)) {
            std::ofstream out(path, std::ios::binary);
            fillIn(out);
        }
        return path;
    }

    MemoryFolder folder_;
};

Files& files() {
    static Files all;
    return all;
}

std::size_t linesBare(const std::string& path) {
    static char buffer[256 << 10];
    const port::UniqueFd file = openToRead(path);
    std::size_t count = 0;
    ssize_t got;
    while ((got = read(file.get(), buffer, sizeof buffer)) > 0) {
        const char* const end = buffer + got;
        const auto next = [end](const char* at) {
            return static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
        };
        for (const char* at = next(buffer); at != nullptr; at = next(at + 1))
            ++count;
    }
    return count;
}

std::size_t linesGetline(const std::string& path) {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(fopen(path.c_str(), "r"), fclose);
    char* line = nullptr;
    std::size_t size = 0;
    std::size_t count = 0;
    while (getline(&line, &size, file.get()) >= 0)
        ++count;
    free(line);
    return count;
}

std::size_t linesStdGetline(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    std::size_t count = 0;
    while (std::getline(file, line))
        ++count;
    return count;
}

std::size_t linesBuffered(const std::string& path) {
    const port::UniqueFd file = openToRead(path);
    LReadFileBuffered reader(file.get());
    char line[LReadFileBufferSize];
    std::size_t count = 0;
    while (reader.ReadLine(line, sizeof line))
        ++count;
    return count;
}

Row lineRow(const char* name, std::size_t (*count)(const std::string&), Whose whose = Whose::Others) {
    return {name,
            [count] {
                const std::string path = files().lines();
                static const std::size_t lines = linesBare(path);
                return milliseconds([&] { need(count(path) == lines, "another number of lines"); });
            },
            whose};
}

// The same lines of 0 to 60 bytes for every way of writing them.
const std::vector<std::string>& someLines() {
    static const std::vector<std::string> lines = [] {
        std::mt19937 random(1);
        std::vector<std::string> made(1000);
        for (std::string& line : made)
            line.assign(random() % (kLongestLine / 2 + 1), 'x');
        return made;
    }();
    return lines;
}

constexpr std::size_t kRounds = 500; // over these lines

// `write` is handed a line and its number.
template <typename Write>
void eachLine(Write write) {
    for (std::size_t round = 0; round < kRounds; ++round)
        for (std::size_t i = 0; i < someLines().size(); ++i)
            write(someLines()[i], static_cast<unsigned>(i));
}

// Memory and one call a buffer: what no writer of text can do without.
void writeBare(int file) {
    char buffer[LWriteFileBufferSize];
    std::size_t count = 0;
    const auto flush = [&] {
        keep(write(file, buffer, count));
        count = 0;
    };
    eachLine([&](const std::string& line, unsigned) {
        if (line.size() + 1 > sizeof buffer - count)
            flush();
        std::memcpy(buffer + count, line.data(), line.size());
        buffer[count + line.size()] = '\n';
        count += line.size() + 1;
    });
    flush();
}

template <bool kFormatted>
void writeStdio(int file) {
    const std::unique_ptr<FILE, int (*)(FILE*)> out(fdopen(dup(file), "w"), fclose);
    eachLine([&](const std::string& line, unsigned number) {
        if constexpr (kFormatted) {
            std::fprintf(out.get(), "%u: %s\n", number, line.c_str());
        } else {
            std::fputs(line.c_str(), out.get());
            std::fputc('\n', out.get());
        }
    });
}

template <typename Writer, bool kFormatted>
void writeOurs(int file) {
    Writer out(file);
    eachLine([&](const std::string& line, unsigned number) {
        if constexpr (kFormatted)
            fprintf(out, "%u: %s\n", number, line.c_str());
        else
            out.WriteLineLF(line.c_str());
    });
}

Row writeRow(const char* name, void (*writeAll)(int), Whose whose = Whose::Others) {
    return {name,
            [writeAll] {
                keep(someLines());
                const port::UniqueFd file(
                    open(files().target().c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
                const double spent = milliseconds([&] { writeAll(file.get()); });
                return spent * 1e6 / static_cast<double>(kRounds * someLines().size());
            },
            whose};
}

// Copies on a thread that can be stopped, and keeps what it is told, as somebody who shows it would.
class Copier final : public LThread {
public:
    Copier(const std::string& from, const std::string& to) : from_(from), to_(to) { Start(31); }
    ~Copier() override { _StopAndWait(); }
    void ThreadFunction() override { result_ = Process(*this, LProcessCopyFile{from_.c_str(), to_.c_str()}); }
    void SetProgress(double fraction) override { progress_ = fraction; }
    int result() const { return GetFinishedSignal().WaitSignal(LNoTimeLimit) ? result_ : LProcessFailed; }

private:
    const std::string from_;
    const std::string to_;
    volatile double progress_ = 0;
    int result_ = LProcessFailed;
};

template <bool kInKernel>
void copyBare(const std::string& from, const std::string& to) {
    const port::UniqueFd source = openToRead(from);
    const port::UniqueFd target(open(to.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    char buffer[LProcessCopyPiece];
    ssize_t moved;
    do
        moved = kInKernel ? copy_file_range(source.get(), nullptr, target.get(), nullptr, sizeof buffer, 0)
                          : read(source.get(), buffer, sizeof buffer);
    while (moved > 0 && (kInKernel || write(target.get(), buffer, static_cast<std::size_t>(moved)) == moved));
}

Row copyRow(const char* name, std::function<void(const std::string&, const std::string&)> copy,
            Whose whose = Whose::Others) {
    return {name,
            [copy] {
                const std::string from = files().large();
                const std::string to = files().target();
                const double spent = milliseconds([&] { copy(from, to); });
                need(std::filesystem::file_size(to) == kLargeFile, "the copy has another size");
                return spent;
            },
            whose};
}

std::unique_ptr<char[]> readBare(const std::string& path, std::size_t& size) {
    const port::UniqueFd file = openToRead(path);
    struct stat status;
    fstat(file.get(), &status);
    size = static_cast<std::size_t>(status.st_size);
    auto bytes = std::make_unique_for_overwrite<char[]>(size + 1);
    keep(read(file.get(), bytes.get(), size));
    return bytes;
}

double readAndConvert(const std::string& path, const char* charset) {
    return milliseconds([&] {
        std::size_t left = 0;
        const auto bytes = readBare(path, left);
        std::size_t room = 2 * left;
        const auto text = std::make_unique_for_overwrite<char[]>(room);
        char* from = bytes.get();
        char* to = text.get();
        const iconv_t converter = iconv_open("UTF-8", charset);
        keep(iconv(converter, &from, &left, &to, &room));
        iconv_close(converter);
    });
}

Case textCase(const char* name, const std::string& mark, const std::string& unit, const char* charset) {
    const auto path = [=] { return files().text(name, mark, unit); };
    Case subject{std::string("text/load ") + name, "ms", Better::Lower, {}, {2}};
    subject.rows.push_back({"floor: read of the file", [=] {
                                const std::string from = path();
                                return milliseconds([&] {
                                    std::size_t size;
                                    keep(readBare(from, size));
                                });
                            }});
    if (charset != nullptr)
        subject.rows.push_back({"read and iconv", [=] { return readAndConvert(path(), charset); }});
    subject.rows.push_back({"LLoadTextAutoChar",
                            [=] {
                                const std::string from = path();
                                return milliseconds([&] {
                                    LStringLongTemplate<char> text;
                                    need(LLoadTextAutoChar(from.c_str(), text), "the text was not read");
                                });
                            },
                            Whose::Ours});
    return subject;
}

const Register readers{[](std::vector<Case>& cases) {
    cases.push_back({"files/lines of 200 MB",
                     "ms",
                     Better::Lower,
                     {lineRow("floor: read 256 KiB and memchr", linesBare),
                      lineRow("getline(3)", linesGetline), lineRow("std::getline", linesStdGetline),
                      lineRow("LReadFileBuffered::ReadLine", linesBuffered, Whose::Ours)},
                     {2}});
    cases.push_back(
        {"files/write lines",
         "ns",
         Better::Lower,
         {writeRow("floor: memcpy and write", writeBare), writeRow("fputs", writeStdio<false>),
          writeRow("LWriteFileRef::WriteLineLF", writeOurs<LWriteFileRef, false>, Whose::Ours),
          writeRow("LWriteFileBuffered::WriteLineLF", writeOurs<LWriteFileBuffered, false>, Whose::Ours)},
         {4}});
    cases.push_back(
        {"files/write formatted lines",
         "ns",
         Better::Lower,
         {writeRow("floor: memcpy and write", writeBare), writeRow("fprintf to a FILE", writeStdio<true>),
          writeRow("fprintf to a LWriteFileRef", writeOurs<LWriteFileRef, true>, Whose::Ours),
          writeRow("fprintf to a LWriteFileBuffered", writeOurs<LWriteFileBuffered, true>, Whose::Ours)},
         {4}});
    cases.push_back({"files/copy 512 MiB with progress",
                     "ms",
                     Better::Lower,
                     {copyRow("floor: the pieces without progress", copyBare<true>),
                      copyRow("read and write of the pieces", copyBare<false>),
                      copyRow("cp",
                              [](const std::string& from, const std::string& to) {
                                  run({"cp", from, to});
                              }),
                      copyRow(
                          "Process(LProcessCopyFile)",
                          [](const std::string& from, const std::string& to) {
                              need(Copier(from, to).result() == LProcessFinished, "the copy failed");
                          },
                          Whose::Ours)},
                     {9}});
    const std::string ascii = "The quick brown fox jumps over the lazy dog, and then it sleeps.\n";
    std::string units;
    std::string swapped;
    for (const char c : ascii) {
        units += {c, '\0'};
        swapped += {'\0', c};
    }
    cases.push_back(textCase("UTF-8", "", ascii, nullptr));
    cases.push_back(textCase("UTF-8 with a mark", "\xEF\xBB\xBF", ascii, nullptr));
    cases.push_back(textCase("UTF-16", "\xFF\xFE", units, "UTF-16"));
    cases.push_back(textCase("UTF-16, high byte first", "\xFE\xFF", swapped, "UTF-16"));
}};

} // namespace
} // namespace bench
