// A folder of a test's own, named without links, gone with the object.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

class TemporaryFolder {
public:
    explicit TemporaryFolder(const std::string& parent = "/tmp")
        : root(std::filesystem::canonical(mkdtemp((parent + "/lfoundation-test-XXXXXX").data()))) {}
    TemporaryFolder(TemporaryFolder&&) = delete;
    ~TemporaryFolder() { std::filesystem::remove_all(root); }

    const std::filesystem::path root;
};
