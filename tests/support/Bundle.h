// Files of a test's own: property lists and application bundles.
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

inline std::string FileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A list of these entries.
inline std::string PropertyList(const std::string& entries) {
    return "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>";
}

inline std::string Entry(const std::string& key, const std::string& text) {
    return "<key>" + key + "</key><string>" + text + "</string>";
}

// Writes FOLDER/NAME.app with a copy of the program and an Info.plist of these entries; returns its path.
inline std::string MakeBundleAt(const std::string& folder, const std::string& name,
                                const std::string& program, const std::string& entries) {
    std::string bundle = folder + "/" + name + ".app";
    std::filesystem::create_directories(bundle + "/Contents/MacOS");
    std::filesystem::copy_file(program, bundle + "/Contents/MacOS/" + name,
                               std::filesystem::copy_options::overwrite_existing);
    std::ofstream(bundle + "/Contents/Info.plist") << PropertyList(entries);
    return bundle;
}
