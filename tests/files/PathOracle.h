// The path operations written down naively, over whole texts, to compare with.
#pragma once

#include <algorithm>
#include <string>

namespace oracle {

constexpr std::size_t kLongest = 259;
constexpr const char* kSeparators = "/\\";

inline std::string file(const std::string& path) {
    std::string out;
    for (std::size_t i = 0; i < path.size() && out.size() < kLongest; ++i)
        out = path[i] == '/' || path[i] == '\\' ? "" : out + path[i];
    return out;
}

inline std::string fileName(const std::string& path) {
    const std::string name = file(path);
    const std::size_t dot = name.rfind('.');
    return dot == 0 ? name : name.substr(0, dot);
}

inline std::string folder(const std::string& path) {
    const std::size_t last = path.find_last_of(kSeparators, kLongest);
    if (last == 0 || last == std::string::npos)
        return path.starts_with('/') ? "/" : "";
    return path.substr(0, last);
}

inline std::string baseFolder(const std::string& path) {
    std::string out = path.substr(0, std::min(path.find_first_of(kSeparators, 2), kLongest));
    if (out.size() > 1 && out.find_last_of(kSeparators) == out.size() - 1)
        out.pop_back();
    return out;
}

inline std::string extension(const std::string& path) {
    const std::string name = path.substr(path.find_last_of(kSeparators) + 1);
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? "" : name.substr(dot, kLongest);
}

inline std::string newExtension(const std::string& path, const std::string& added) {
    std::string kept = path.substr(0, kLongest);
    const std::size_t dot = kept.rfind('.');
    if (dot != 0 && dot != std::string::npos && kept.find_first_of(kSeparators, dot) == std::string::npos)
        kept.resize(dot);
    return (kept + added).substr(0, kLongest);
}

inline bool matches(const char* pattern, const char* name) {
    if (*name == '\0')
        return std::string(pattern).find_first_not_of('*') == std::string::npos;
    if (*pattern == *name || *pattern == '?')
        return matches(pattern + 1, name + 1);
    if (*pattern != '*')
        return false;
    for (; *name != '\0'; ++name)
        if (matches(pattern + 1, name))
            return true;
    return matches(pattern + 1, name);
}

} // namespace oracle
