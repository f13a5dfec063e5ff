// The worst property lists that we know how to build, each read as the settings of a program: what becomes of it,
// how long it takes and what memory. No line may pass a second or 256 MiB; the exit status says so.
//
// usage: bench_worst_lists [PART-OF-A-NAME]
#include <Foundation/Foundation.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "MemoryFolder.h"
#include "corefoundation/PropertyList.h"

namespace {

constexpr std::size_t kFile = port::kPropertyListFileLimit - 100;
constexpr std::size_t kText = port::kPropertyListStringLimit;
constexpr std::size_t kValues = port::kPropertyListNodeLimit - 2; // beside what holds them
constexpr double kMostMilliseconds = 1000;
constexpr double kMostMemory = 256; // MiB

std::string bigEndian(std::uint64_t value, std::size_t width) {
    std::string bytes;
    for (std::size_t i = width; i-- > 0;)
        bytes += static_cast<char>(value >> (8 * i));
    return bytes;
}

std::string repeated(std::string_view text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    while (count-- > 0)
        all += text;
    return all;
}

// Puts a binary list together; the object 0 is a dictionary with the object 1 as key and the object 2 as value.
class Binary {
public:
    Binary() {
        objects_ = "bplist00";
        add("\xD1" + bigEndian(1, kWidth) + bigEndian(2, kWidth));
        text("k");
    }
    std::size_t add(const std::string& object) {
        offsets_.push_back(objects_.size());
        objects_ += object;
        return offsets_.size() - 1;
    }
    std::size_t text(const std::string& ascii) { return add(head('\x5F', ascii.size()) + ascii); }
    // `units` of two bytes each.
    std::size_t wide(const std::string& units) { return add(head('\x6F', units.size() / 2) + units); }
    std::size_t data(std::size_t size) { return add(head('\x4F', size) + std::string(size, 'x')); }
    template <typename Reference>
    std::size_t array(std::size_t count, Reference reference) {
        return add(head('\xAF', count) + references(count, reference));
    }
    template <typename Key, typename Value>
    std::size_t dictionary(std::size_t count, Key key, Value value) {
        return add(head('\xDF', count) + references(count, key) + references(count, value));
    }
    std::size_t next() const { return offsets_.size(); }
    std::string file() const {
        std::string bytes = objects_;
        for (const std::size_t offset : offsets_)
            bytes += bigEndian(offset, 3);
        return bytes + std::string(6, '\0') + '\3' + static_cast<char>(kWidth) + bigEndian(next(), 8) +
               bigEndian(0, 8) + bigEndian(objects_.size(), 8);
    }

private:
    static constexpr std::size_t kWidth = 3;

    static std::string head(char marker, std::size_t count) {
        return marker + ("\x12" + bigEndian(count, 4));
    }
    template <typename Reference>
    static std::string references(std::size_t count, Reference reference) {
        std::string bytes;
        for (std::size_t i = 0; i < count; ++i)
            bytes += bigEndian(reference(i), kWidth);
        return bytes;
    }

    std::string objects_;
    std::vector<std::size_t> offsets_;
};

auto always(std::size_t index) {
    return [index](std::size_t) { return index; };
}

// A dictionary of so many references to the first of these keys and the second, in turn.
std::string twoKeys(std::size_t count, const std::string& one, const std::string& other, bool wide) {
    Binary list;
    list.dictionary(
        count, [](std::size_t i) { return 3 + i % 2; }, always(1));
    for (const std::string* key : {&one, &other})
        wide ? list.wide(*key) : list.text(*key);
    return list.file();
}

// Keys of their own that differ in their last bytes, backwards.
std::string longKeys(std::size_t count, bool wide) {
    const std::size_t room = kFile / count - 16;
    Binary list;
    list.dictionary(
        count, [count](std::size_t i) { return 2 + count - i; }, always(1));
    for (std::size_t i = 0; i < count; ++i) {
        const std::string end = bigEndian(0x303030 + i % 64 + (i / 64 % 64 << 8) + (i / 4096 << 16), 3) + "1";
        wide ? list.wide(repeated(" \xAC", (room - 4) / 2) + end)
             : list.text(std::string(room - 4, 'x') + end);
    }
    return list.file();
}

std::string towersOfDictionaries() {
    Binary list;
    for (int level = 0; level < 6; ++level)
        list.dictionary(kValues - 10, always(1), always(list.next() + 1));
    list.add("\x09");
    return list.file();
}

// Each holds the next one twice.
std::string doubling() {
    Binary list;
    for (int level = 0; level < 60; ++level)
        list.array(2, always(list.next() + 1));
    list.text("x");
    return list.file();
}

std::string arrayOf(std::size_t count, std::size_t size) {
    Binary list;
    list.array(count, always(3));
    list.text(std::string(size, 'x'));
    return list.file();
}

std::string wideArray(std::size_t count, std::size_t units) {
    Binary list;
    list.array(count, always(3));
    list.wide(repeated(" \xAC", units));
    return list.file();
}

std::string manyObjects(const std::string& object) {
    Binary list;
    list.array(kValues, [](std::size_t i) { return 3 + i; });
    for (std::size_t i = 0; i < kValues; ++i)
        list.add(object);
    return list.file();
}

std::string arraysOfData() {
    Binary list;
    list.array(kValues / 2, always(3));
    list.array(1, always(4));
    list.data(80);
    return list.file();
}

std::string xml(const std::string& value) {
    return "<plist><dict><key>k</key>" + value + "</dict></plist>";
}

std::string element(const char* name, const std::string& text) {
    return xml("<" + std::string(name) + ">" + text + "</" + name + ">");
}

std::string filling(const char* name, std::string_view piece, std::size_t size = kFile) {
    return element(name, repeated(piece, size / piece.size()));
}

std::string xmlKeys(std::size_t count) {
    const std::size_t room = kFile / count - 30;
    std::string all;
    for (std::size_t i = count; i-- > 0;)
        all += "<key>" + std::string(room, 'x') + std::to_string(i) + "</key><true/>";
    return element("dict", all);
}

std::string attributes() {
    std::string all = "<string";
    for (std::size_t i = 0; all.size() < kFile; ++i)
        all += " a" + std::to_string(i) + "=''";
    return xml(all + "/>");
}

std::string wideXML() {
    std::string text = "\xFE\xFF";
    for (const char c : std::string("<plist><data>"))
        text += {'\0', c};
    return text + repeated(" \xAC", kFile / 2 - 20);
}

struct Row {
    const char* name;
    std::function<std::string()> make;
};

const Row rows[] = {
    {"one long key, 64 KB", [] { return twoKeys(5'000, std::string(32'000, 'x'), "y", false); }},
    {"one long key, 260 KB", [] { return twoKeys(20'000, std::string(130'000, 'x'), "y", false); }},
    {"one key of 1 MiB", [] { return twoKeys(kValues, std::string(kText, 'x'), "y", false); }},
    {"keys at the limit, 100",
     [] { return twoKeys(100, std::string(41'900, 'x'), std::string(41'900, 'x'), false); }},
    {"keys at the limit, 10,000",
     [] { return twoKeys(10'000, std::string(418, 'x'), std::string(418, 'x'), false); }},
    {"keys at the limit, all",
     [] { return twoKeys(kValues, std::string(41, 'x'), std::string(41, 'x'), false); }},
    {"wide keys at the limit",
     [] { return twoKeys(10'000, repeated(" \xAC", 209), repeated(" \xAC", 209), true); }},
    {"own long keys, 1,000", [] { return longKeys(1'000, false); }},
    {"own long keys, 30,000", [] { return longKeys(30'000, false); }},
    {"own wide keys, 1,000", [] { return longKeys(1'000, true); }},
    {"own wide keys, 30,000", [] { return longKeys(30'000, true); }},
    {"a text of 1 MiB 100,000 times", [] { return arrayOf(kValues, kText); }},
    {"texts at the limit, 3", [] { return arrayOf(3, kText); }},
    {"texts at the limit, all", [] { return arrayOf(kValues, 41); }},
    {"wide texts at the limit, 5", [] { return wideArray(5, 349'000); }},
    {"wide texts at the limit, all", [] { return wideArray(kValues, 20); }},
    {"dictionaries in dictionaries", towersOfDictionaries},
    {"arrays that double", doubling},
    {"data 50,000 times", arraysOfData},
    {"100,000 reals", [] { return manyObjects("\x23" + bigEndian(0x3FB999999999999A, 8)); }},
    {"100,000 wide texts", [] { return manyObjects("\x6A" + repeated(" \xAC", 10)); }},
    {"data of 4 MiB",
     [] {
         Binary list;
         list.data(kFile - 100);
         return list.file();
     }},
    {"XML: 100,000 texts",
     [] { return element("array", repeated("<string>twenty-two letters it is</string>", kValues)); }},
    {"XML: 100,000 reals",
     [] { return element("array", repeated("<real>1.2345678901234567e-300</real>", kValues)); }},
    {"XML: long keys, 1,000", [] { return xmlKeys(1'000); }},
    {"XML: long keys, 50,000", [] { return xmlKeys(50'000); }},
    {"XML: a real of 4 MiB", [] { return filling("real", "9"); }},
    {"XML: a fraction of 4 MiB",
     [] { return element("real", "." + std::string(kFile - 100, '0') + "1e4194000"); }},
    {"XML: an integer of 4 MiB", [] { return filling("integer", "0"); }},
    {"XML: a date of 4 MiB", [] { return filling("date", " "); }},
    {"XML: data of 4 MiB", [] { return filling("data", "AAAA"); }},
    {"XML: data of line feeds", [] { return filling("data", "\n"); }},
    {"XML: data of references", [] { return filling("data", "&#10;"); }},
    {"XML: texts in pieces", [] { return filling("string", "<![CDATA[x]]>"); }},
    {"XML: comments", [] { return filling("array", "<!---->"); }},
    {"XML: instructions", [] { return filling("array", "<?a?>"); }},
    {"XML: attributes", attributes},
    {"XML: a name of 4 MiB", [] { return xml("<" + std::string(kFile - 100, 'x') + "/>"); }},
    {"XML: wide", wideXML},
    {"XML: Latin-1",
     [] { return "<?xml version='1.0' encoding='ISO-8859-1'?>" + filling("data", "\xE9", kFile - 50); }},
    {"XML: entities",
     [] {
         return "<!DOCTYPE plist [<!ENTITY a 'aaaaaaaaaa'><!ENTITY b '&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;'>]>" +
                filling("string", "&b;", kFile - 200);
     }},
    {"XML: a long document type",
     [] { return "<!DOCTYPE plist SYSTEM '" + std::string(kFile - 200, 'x') + "'>" + xml("<true/>"); }},
};

// What a program does with its settings: all that is there, and the texts of one array.
int readSettings(const char* file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(stream)), {});
    std::string error;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
    if (!port::readPropertyList({bytes, text.size()}, error))
        return std::printf("%s", error.c_str());
    const auto settings = NSUserDefaults::initWithSuiteName("list");
    const auto texts = settings->arrayForKey("k");
    settings->setBool(true, "another");
    const bool saved = settings->synchronize();
    std::printf("read, %lu texts, %s", texts ? texts->count() : 0, saved ? "saved" : "not saved");
    return 0;
}

double millisecondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) * 1e-3;
}

// False when it took too long or too much.
bool measure(const Row& row, const bench::MemoryFolder& folder, const char* program) {
    const std::string file = folder / "list.plist";
    const std::string bytes = row.make();
    std::ofstream(file, std::ios::binary) << bytes;
    std::printf("%-32s %8zu  ", row.name, bytes.size());
    std::fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        execl(program, program, "--read", file.c_str(), nullptr);
        _exit(127);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    const double milliseconds = millisecondsOf(usage.ru_utime) + millisecondsOf(usage.ru_stime);
    const double memory = static_cast<double>(usage.ru_maxrss) / 1024;
    const bool isFair = WIFEXITED(status) && bytes.size() <= port::kPropertyListFileLimit &&
                        milliseconds <= kMostMilliseconds && memory <= kMostMemory;
    std::printf("  %.0f ms, %.0f MiB%s\n", milliseconds, memory, isFair ? "" : "   TOO MUCH");
    return isFair;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--read") == 0) {
        readSettings(argv[2]);
        return 0;
    }
    const bench::MemoryFolder folder;
    setenv("XDG_CONFIG_HOME", (folder / "").c_str(), 1);
    bool allFair = true;
    for (const Row& row : rows)
        if (argc == 1 || std::strstr(row.name, argv[1]) != nullptr)
            allFair = measure(row, folder, "/proc/self/exe") && allFair;
    return allFair ? 0 : 1;
}
