// Reading and writing property lists: XML both ways, binary for reading.
//
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "corefoundation/CFObject.h"

namespace port {

constexpr std::size_t kPropertyListFileLimit = 4 << 20;   // bytes
constexpr std::size_t kPropertyListStringLimit = 1 << 20; // bytes of UTF-8, keys included
constexpr std::size_t kPropertyListDepthLimit = 64;       // containers, one inside the other
constexpr std::size_t kPropertyListNodeLimit = 100'000;   // values, each as often as it is referred to
// The file's limit is also the one of a binary list's texts, keys and data, in bytes as they stand in the file, each
// as often as it is referred to: read, a list is no larger than its file could be.

using Bytes = std::span<const std::uint8_t>;

// Reads a list in the format that its first bytes tell. Null when it is malformed or beyond a limit: `error`
// then says why, in one line that begins with "line N: " or "offset N: "; else `error` is untouched.
CFRef<CFPropertyListRef> readPropertyList(Bytes bytes, std::string& error);

// The two readers behind it, for at most kPropertyListFileLimit bytes.
CFRef<CFPropertyListRef> readXMLPropertyList(Bytes bytes, std::string& error);
CFRef<CFPropertyListRef> readBinaryPropertyList(Bytes bytes, std::string& error);
bool isBinaryPropertyList(Bytes bytes);

// The canonical XML form. False, with the reason in `error`, when the list holds what XML or the reader would
// not take; `xml` is then of no use.
bool writeXMLPropertyList(CFPropertyListRef list, std::string& xml, std::string& error);

// The whole of a regular file of at most kPropertyListFileLimit bytes. 0, or an errno value with `bytes`
// empty: EFBIG beyond the limit, EINVAL for what is no regular file. Never waits for a pipe's other end.
int readPropertyListFile(const char* path, std::vector<std::uint8_t>& bytes);

} // namespace port
