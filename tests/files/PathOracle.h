// The path operations written down naively, character by character, to compare with.
#pragma once

#include <string>

namespace oracle {

constexpr std::size_t kLongest = 259;

inline bool isSeparator(char character) {
    return character == '/' || character == '\\';
}

inline std::string file(const std::string& path) {
    std::string out;
    for (const char character : path) {
        if (out.size() == kLongest)
            break;
        out = isSeparator(character) ? "" : out + character;
    }
    return out;
}

inline std::string fileName(const std::string& path) {
    const std::string name = file(path);
    const std::size_t dot = name.rfind('.');
    return dot == 0 ? name : name.substr(0, dot);
}

inline std::string folder(const std::string& path) {
    std::size_t last = 0;
    for (std::size_t i = 0; i < path.size() && i < kLongest + 1; ++i)
        if (isSeparator(path[i]))
            last = i;
    return last != 0 ? path.substr(0, last) : path.substr(0, path.starts_with('/') ? 1 : 0);
}

inline std::string baseFolder(const std::string& path) {
    std::string out;
    for (std::size_t i = 0; i < path.size() && i < kLongest && !(i >= 2 && isSeparator(path[i])); ++i)
        out += path[i];
    if (out.size() > 1 && isSeparator(out.back()))
        out.pop_back();
    return out;
}

inline std::string extension(const std::string& path) {
    std::size_t dot = std::string::npos;
    for (std::size_t i = 0; i < path.size(); ++i)
        if (path[i] == '.')
            dot = i;
        else if (isSeparator(path[i]))
            dot = std::string::npos;
    return dot == std::string::npos ? "" : path.substr(dot, kLongest);
}

inline std::string newExtension(const std::string& path, const std::string& added) {
    std::string kept = path.substr(0, kLongest);
    std::size_t cut = kept.size();
    for (std::size_t i = 0; i < kept.size(); ++i)
        if (kept[i] == '.' && i != 0)
            cut = i;
        else if (isSeparator(kept[i]))
            cut = kept.size();
    kept.resize(cut);
    return cut > kLongest - 1 ? kept : (kept + added).substr(0, kLongest);
}

inline bool matches(const char* pattern, const char* name) {
    if (*pattern == '\0')
        return *name == '\0';
    for (;; ++pattern, ++name) {
        if (*name == '\0')
            return std::string(pattern).find_first_not_of('*') == std::string::npos;
        if (*pattern == *name || *pattern == '?')
            continue;
        if (*pattern != '*')
            return false;
        if (pattern[1] == '\0')
            return true;
        for (; *name != '\0'; ++name)
            if (matches(pattern + 1, name))
                return true;
        return matches(pattern + 1, name);
    }
}

} // namespace oracle
