// The path operations beside what a user would write by hand (the floor: one backward scan for "/" and one
// bounded copy), the calls of libc, and std::filesystem::path, held or built from text.
#include "Driver.h"

#include "base/LLimits.h"
#include "files/LFile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fnmatch.h>
#include <libgen.h>

namespace {

namespace fs = std::filesystem;

struct Inputs {
    const char* path = "/Applications/Zubeq Free.app/Contents/Resources/notes.txt";
    const char* folder = "/Applications/Zubeq Free.app/Contents/MacOS";
    const char* name = "notes";
    const char* extension = ".txt";
    const char* list = "com.brelvanic.zubeqfree.plist";
    const char* agent = "com.brelvanic.agent7";
    const char* letters = "xxaxxxbyyyyybzzzzzzc";
    fs::path held = path;
    fs::path heldFolder = folder;
};

// The compiler must not know the values.
const Inputs& hidden() {
    static Inputs inputs;
    Inputs* p = &inputs;
    asm volatile("" : "+r"(p));
    return *p;
}

char buffer[LPathBufferSize];

std::size_t store(std::size_t used, const char* text, std::size_t length) {
    length = std::min(length, sizeof buffer - 1 - used);
    std::memmove(buffer + used, text, length); // a bounded memcpy would become a slow string instruction
    buffer[used + length] = '\0';
    return used + length;
}

// Behind the last "/", or the beginning.
const char* behindSlash(const char* path, const char* end) {
    while (end != path && end[-1] != '/')
        --end;
    return end;
}

void handFile(const Inputs& in) {
    const char* const end = in.path + std::strlen(in.path);
    const char* const begin = behindSlash(in.path, end);
    store(0, begin, static_cast<std::size_t>(end - begin));
}

void handFolder(const Inputs& in) {
    const char* const begin = behindSlash(in.path, in.path + std::strlen(in.path));
    store(0, in.path, static_cast<std::size_t>(std::max<std::ptrdiff_t>(begin - in.path - 1, 0)));
}

void handExtension(const Inputs& in) {
    const char* const end = in.path + std::strlen(in.path);
    const char* dot = end;
    while (dot != in.path && *dot != '.' && *dot != '/')
        --dot;
    store(0, dot, *dot == '.' ? static_cast<std::size_t>(end - dot) : 0);
}

void handJoin(const Inputs& in) {
    std::size_t used = store(0, in.folder, std::strlen(in.folder));
    if (used != 0 && buffer[used - 1] != '/')
        used = store(used, "/", 1);
    used = store(used, in.name, std::strlen(in.name));
    store(used, in.extension, std::strlen(in.extension));
}

void handRelative(const Inputs& in) {
    const char* base = in.folder;
    const char* path = in.path;
    for (; *base != '\0' && *base == *path; ++base)
        ++path;
    path = behindSlash(in.path, path);
    std::size_t used = store(0, "../", 3);
    for (; *base != '\0'; ++base)
        if (*base == '/')
            used = store(used, "../", 3);
    store(used, path, std::strlen(path));
}

template <typename Work>
bench::Row row(const char* name, Work work, bench::Whose whose = bench::Whose::Others) {
    return {name,
            [work] {
                return bench::nanosecondsPerCall([&] {
                    work(hidden());
                    bench::keep(buffer);
                });
            },
            whose};
}

template <typename Work>
bench::Row ours(const char* name, Work work) {
    return row(name, work, bench::Whose::Ours);
}

// What a user of std::filesystem holds afterwards is a path of its own.
template <typename Work>
bench::Row pathRow(const char* name, Work work) {
    return row(name, [work](const Inputs& in) { bench::keep(work(in)); });
}

// The textbook's loop.
bool handMatch(const char* pattern, const char* text) {
    const char* star = nullptr;
    const char* mark = nullptr;
    while (*text != '\0') {
        if (*pattern == '*') {
            star = pattern++;
            mark = text;
        } else if (*pattern == '?' || *pattern == *text) {
            ++pattern;
            ++text;
        } else if (star != nullptr) {
            pattern = star + 1;
            text = ++mark;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == '\0';
}

bench::Case wildcard(const char* pattern, const char* Inputs::*text) {
    bench::Case subject{std::string("paths/match ") + pattern, "ns", bench::Better::Lower, {}};
    subject.rows.push_back(
        row("floor: by hand", [=](const Inputs& in) { bench::keep(handMatch(pattern, in.*text)); }));
    subject.rows.push_back(
        row("fnmatch", [=](const Inputs& in) { bench::keep(fnmatch(pattern, in.*text, 0)); }));
    subject.rows.push_back(
        ours("IsMatch", [=](const Inputs& in) { bench::keep(LFile::IsMatch<char>(pattern, in.*text)); }));
    return subject;
}

bench::Case splits(const char* name, std::vector<bench::Row> rows) {
    return {std::string("paths/") + name, "ns", bench::Better::Lower, std::move(rows)};
}

const bench::Register registered([](std::vector<bench::Case>& cases) {
    cases.push_back(splits(
        "last component",
        {row("floor: by hand", handFile),
         row("basename",
             [](const Inputs& in) {
                 const char* const name =
                     basename(static_cast<char*>(std::memcpy(buffer, in.path, std::strlen(in.path) + 1)));
                 bench::keep(name);
             }),
         pathRow("path held", [](const Inputs& in) { return in.held.filename(); }),
         pathRow("path from text", [](const Inputs& in) { return fs::path(in.path).filename(); }),
         ours("_GetFileFromPath", [](const Inputs& in) { LFile::_GetFileFromPath(buffer, in.path); })}));
    cases.push_back(splits(
        "folder",
        {row("floor: by hand", handFolder),
         row("dirname",
             [](const Inputs& in) {
                 const char* const name =
                     dirname(static_cast<char*>(std::memcpy(buffer, in.path, std::strlen(in.path) + 1)));
                 bench::keep(name);
             }),
         pathRow("path held", [](const Inputs& in) { return in.held.parent_path(); }),
         pathRow("path from text", [](const Inputs& in) { return fs::path(in.path).parent_path(); }),
         ours("_GetFolderFromPath", [](const Inputs& in) { LFile::_GetFolderFromPath(buffer, in.path); })}));
    cases.push_back(
        splits("extension",
               {row("floor: by hand", handExtension),
                pathRow("path held", [](const Inputs& in) { return in.held.extension(); }),
                pathRow("path from text", [](const Inputs& in) { return fs::path(in.path).extension(); }),
                ours("_GetFileExtensionFromPath",
                     [](const Inputs& in) { LFile::_GetFileExtensionFromPath(buffer, in.path); })}));
    cases.push_back(splits(
        "join", {row("floor: by hand", handJoin),
                 row("snprintf",
                     [](const Inputs& in) {
                         std::snprintf(buffer, sizeof buffer, "%s/%s%s", in.folder, in.name, in.extension);
                     }),
                 pathRow("path from text",
                         [](const Inputs& in) { return (fs::path(in.folder) / in.name) += in.extension; }),
                 ours("_MakeFilePath", [](const Inputs& in) {
                     LFile::_MakeFilePath(buffer, in.folder, in.name, in.extension);
                 })}));
    cases.push_back(splits(
        "relative",
        {row("floor: by hand", handRelative),
         pathRow("path held", [](const Inputs& in) { return in.held.lexically_relative(in.heldFolder); }),
         pathRow("path from text",
                 [](const Inputs& in) { return fs::path(in.path).lexically_relative(in.folder); }),
         ours("GetRelativePathFromAbsolutePath", [](const Inputs& in) {
             LFile::GetRelativePathFromAbsolutePath(buffer, in.folder, in.path);
         })}));
    cases.push_back(wildcard("*.plist", &Inputs::list));
    cases.push_back(wildcard("com.*.agent?", &Inputs::agent));
    cases.push_back(wildcard("*a*b*c", &Inputs::letters));
});

} // namespace
