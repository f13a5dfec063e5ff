// Calls on a dictionary in sequence, against a map that is told the same; then the way over a socket, and the same
// questions to what arrived. Each call is an operation, a key and as many bytes of a value as a length says.
#include "xpc/XPCFrameReader.h"
#include "xpc/XPCFrameWriter.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <port/UniqueFd.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr unsigned kKeys = 7;
constexpr std::size_t kUuidBytes = 16;
// One is inside the frame, which holds one for each key; the other travels beside it.
constexpr std::size_t kLongestInside = 100'000;
constexpr std::size_t kLongest = 400'000;

enum Operation { Bool, Int64, UInt64, Double, Date, Data, UUID, String, FD, Operations };

struct Value {
    Operation type;
    std::string bytes;
};
using Model = std::map<std::string, Value>;

void require(bool holds) {
    if (!holds)
        std::abort();
}

// What is left of the input; zeros behind its end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}
    bool isEmpty() const { return next_ == end_; }
    std::uint8_t byte() { return isEmpty() ? 0 : *next_++; }
    std::string bytes(std::size_t count) {
        const std::size_t there = std::min(count, static_cast<std::size_t>(end_ - next_));
        std::string all(reinterpret_cast<const char*>(next_), there);
        next_ += there;
        all.resize(count);
        return all;
    }

private:
    const std::uint8_t* next_;
    const std::uint8_t* end_;
};

template <typename T>
T number(const std::string& bytes) {
    T value{};
    std::memcpy(&value, bytes.data(), sizeof value);
    return value;
}

// A length in two bytes, the first of which may make it long.
std::string valueOf(Operation type, Input& input) {
    if (type == Bool)
        return std::string(1, static_cast<char>(input.byte() & 1));
    if (type == UUID)
        return input.bytes(kUuidBytes);
    if (type < Data)
        return input.bytes(sizeof(std::int64_t));
    if (type == FD)
        return {};
    const std::size_t scale = input.byte();
    std::size_t length = std::min(kLongest, scale > 200 ? input.byte() * 2048UL : scale);
    if (length <= port::kMaxInlineValueBytes)
        length = std::min(length, kLongestInside);
    std::string bytes = input.bytes(length);
    return type == String ? std::string(bytes.c_str()) : bytes;
}

void set(xpc_object_t dictionary, const char* key, const Value& value) {
    switch (value.type) {
    case Bool:
        return xpc_dictionary_set_bool(dictionary, key, value.bytes[0] != 0);
    case Int64:
        return xpc_dictionary_set_int64(dictionary, key, number<std::int64_t>(value.bytes));
    case UInt64:
        return xpc_dictionary_set_uint64(dictionary, key, number<std::uint64_t>(value.bytes));
    case Double:
        return xpc_dictionary_set_double(dictionary, key, number<double>(value.bytes));
    case Date:
        return xpc_dictionary_set_date(dictionary, key, number<std::int64_t>(value.bytes));
    case Data:
        return xpc_dictionary_set_data(dictionary, key, value.bytes.data(), value.bytes.size());
    case UUID:
        return xpc_dictionary_set_uuid(dictionary, key,
                                       reinterpret_cast<const std::uint8_t*>(value.bytes.data()));
    case String:
        return xpc_dictionary_set_string(dictionary, key, value.bytes.c_str());
    case FD:
        return xpc_dictionary_set_fd(dictionary, key, STDERR_FILENO);
    case Operations:
        break;
    }
}

template <typename T>
bool isNumber(T got, const Value& value, Operation type) {
    const T expected = value.type == type ? number<T>(value.bytes) : T{};
    return std::memcmp(&got, &expected, sizeof got) == 0;
}

// Every getter, whatever the type is: one of another type answers a neutral value.
void check(xpc_object_t dictionary, const char* key, const Value& value) {
    require(xpc_dictionary_get_bool(dictionary, key) == (value.type == Bool && value.bytes[0] != 0));
    require(isNumber(xpc_dictionary_get_int64(dictionary, key), value, Int64));
    require(isNumber(xpc_dictionary_get_uint64(dictionary, key), value, UInt64));
    require(isNumber(xpc_dictionary_get_double(dictionary, key), value, Double));
    require(isNumber(xpc_dictionary_get_date(dictionary, key), value, Date));
    std::size_t length = 0;
    const void* const bytes = xpc_dictionary_get_data(dictionary, key, &length);
    require((bytes != nullptr) == (value.type == Data) &&
            length == (value.type == Data ? value.bytes.size() : 0));
    require(bytes == nullptr || std::memcmp(bytes, value.bytes.data(), length) == 0);
    const char* const text = xpc_dictionary_get_string(dictionary, key);
    require((text != nullptr) == (value.type == String) && (text == nullptr || value.bytes == text));
    const std::uint8_t* const uuid = xpc_dictionary_get_uuid(dictionary, key);
    require((uuid != nullptr) == (value.type == UUID));
    require(uuid == nullptr || std::memcmp(uuid, value.bytes.data(), kUuidBytes) == 0);
    require(static_cast<bool>(port::UniqueFd(xpc_dictionary_dup_fd(dictionary, key))) == (value.type == FD));
}

void checkAll(xpc_object_t dictionary, const Model& model) {
    for (unsigned index = 0; index < kKeys; ++index) {
        const std::string key(index, 'k');
        const auto entry = model.find(key);
        require((xpc_dictionary_get_value(dictionary, key.c_str()) != nullptr) == (entry != model.end()));
        if (entry != model.end())
            check(dictionary, key.c_str(), entry->second);
    }
}

struct Sink final : port::XPCFrameSink {
    bool frameReceived(port::XPCRef<port::XPCDictionary> frame) override {
        arrived = std::move(frame);
        return true;
    }
    port::XPCRef<port::XPCDictionary> arrived;
};

void travel(port::XPCDictionary& dictionary, const Model& model) {
    std::array<int, 2> ends{};
    require(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends.data()) == 0);
    const port::UniqueFd mine(ends[0]);
    const port::UniqueFd theirs(ends[1]);
    port::XPCFrameWriter writer;
    port::XPCFrameReader reader;
    Sink sink;
    std::vector<dispatch_block_t> none;
    auto sent = writer.send(mine.get(), dictionary, port::XPCFrameKind::Message, 0);
    while (!sink.arrived) {
        require(sent != port::XPCWriteResult::Failed);
        const auto result = reader.readFrom(theirs.get(), port::XPCScratch::ofThisThread(), sink);
        require(result != port::XPCReadResult::Refused && result != port::XPCReadResult::Closed);
        if (!sink.arrived)
            sent = writer.flush(mine.get(), none);
    }
    checkAll(sink.arrived.get(), model);
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const auto dictionary = port::XPCDictionary::create();
    Model model;
    while (!input.isEmpty()) {
        const auto type = static_cast<Operation>(input.byte() % Operations);
        const std::string key(input.byte() % kKeys, 'k');
        const Value value{type, valueOf(type, input)};
        set(dictionary.get(), key.c_str(), value);
        model[key] = value;
        checkAll(dictionary.get(), model);
    }
    if (dictionary->seal()) // none of the limits was met: the model has no more than they allow
        travel(*dictionary, model);
    else
        std::abort();
    return 0;
}
