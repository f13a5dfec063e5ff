#include "corefoundation/CFContainers.h"
#include "corefoundation/CFString.h"
#include "corefoundation/CFStringEncodings.h"
#include "corefoundation/CFValues.h"
#include "corefoundation/PropertyList.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <utility>

// The file: a magic text; the objects, each a marker byte with type and size; a table of their offsets; a
// trailer that tells the widths of offsets and of references (indices into the table), and the top object.
namespace port {
namespace {

constexpr std::string_view kMagic = "bplist00"; // the last two tell the version
constexpr std::size_t kVersionSize = 2;
constexpr std::size_t kTrailerSize = 32;
constexpr std::size_t kOffsetWidthAt = 6; // in the trailer
constexpr std::size_t kReferenceWidthAt = 7;
constexpr std::size_t kCountAt = 8;
constexpr std::size_t kTopAt = 16;
constexpr std::size_t kTableAt = 24;
constexpr std::size_t kGreatestWidth = 8;
constexpr std::size_t kObjectLimit = 2 * kPropertyListNodeLimit; // each value may have a key

// The high half of a marker byte; the low half is a size or, for singles, which one it is.
enum class Type : std::uint8_t {
    Single = 0x0,
    Integer = 0x1,
    Real = 0x2,
    Date = 0x3,
    Data = 0x4,
    Ascii = 0x5,
    Utf16 = 0x6,
    Array = 0xA,
    Dictionary = 0xD,
};

constexpr unsigned kFalse = 0x8;
constexpr unsigned kTrue = 0x9;
constexpr unsigned kCountFollows = 0xF; // the size is an integer object behind the marker

bool isContent(Type type) {
    return type == Type::Data || type == Type::Ascii || type == Type::Utf16;
}

std::uint64_t bigEndian(Bytes bytes) {
    std::uint64_t value = 0;
    for (const std::uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

class BinaryReader {
public:
    explicit BinaryReader(Bytes bytes) : bytes_(bytes) {}

    CFRef<CFPropertyListRef> read(std::string& error);

private:
    // What is known of an object of the table.
    struct Slot {
        CFRef<CFTypeRef> object;
        std::uint32_t nodes = 0;   // values in it, itself included
        std::uint32_t content = 0; // bytes of its texts, keys and data
        std::uint32_t height = 0;  // containers one inside the other, itself included
        bool isOpen = false;       // its elements are being read
    };

    struct Object {
        std::size_t offset;
        Type type;
        unsigned low;
        std::size_t count; // bytes, units, elements or pairs
        Bytes payload;
    };

    using Value = CFRef<CFTypeRef>;

    // The result of a step that failed, whatever the step would return.
    struct Failure {
        operator bool() const { return false; }
        operator const Slot*() const { return nullptr; }
        operator Value() const { return {}; }
    };

    bool readTrailer();
    const Slot* resolve(std::uint64_t index, std::size_t from);
    const Slot* resolveKey(std::uint64_t index, std::size_t from);
    bool locate(std::size_t index, Object& object);
    bool readCount(std::size_t& at, Object& object);
    std::size_t payloadWidth(const Object& object) const;
    Value make(const Object& object, Slot& slot);
    Value makeSingle(const Object& object);
    Value makeInteger(const Object& object);
    Value makeReal(const Object& object);
    Value makeDate(const Object& object);
    Value makeAscii(const Object& object);
    Value makeUtf16(const Object& object);
    Value makeContainer(const Object& object, Slot& slot);
    Value makeArray(const Object& object, Slot& slot);
    Value makeDictionary(const Object& object, Slot& slot);
    std::uint64_t referenceAt(const Object& object, std::size_t i) const {
        return bigEndian(object.payload.subspan(i * referenceWidth_, referenceWidth_));
    }
    Failure fail(std::size_t offset, std::string_view reason);

    Bytes bytes_;
    std::size_t objectsEnd_ = 0; // and begin of the table
    std::size_t offsetWidth_ = 0;
    std::size_t referenceWidth_ = 0;
    std::uint64_t top_ = 0;
    std::vector<Slot> slots_;
    std::size_t taken_ = 0;   // bytes of the objects read
    std::size_t nodes_ = 0;   // this and the next count what is referred to again once more
    std::size_t content_ = 0; // bytes of texts, keys and data
    std::size_t depth_ = 0;
    std::string error_;
};

CFRef<CFPropertyListRef> BinaryReader::read(std::string& error) {
    const Slot* const top = readTrailer() ? resolve(top_, bytes_.size() - kTrailerSize + kTopAt) : nullptr;
    if (top != nullptr)
        return top->object;
    error = error_;
    return {};
}

bool BinaryReader::readTrailer() {
    if (bytes_.size() < kMagic.size() + kTrailerSize)
        return fail(0, "list too short");
    if (!std::equal(kMagic.begin(), kMagic.end(), bytes_.begin()))
        return fail(0, "unknown version");
    const std::size_t start = bytes_.size() - kTrailerSize;
    const Bytes trailer = bytes_.subspan(start);
    offsetWidth_ = trailer[kOffsetWidthAt];
    referenceWidth_ = trailer[kReferenceWidthAt];
    const std::uint64_t count = bigEndian(trailer.subspan(kCountAt, 8));
    top_ = bigEndian(trailer.subspan(kTopAt, 8));
    const std::uint64_t table = bigEndian(trailer.subspan(kTableAt, 8));
    if (offsetWidth_ - 1 >= kGreatestWidth || referenceWidth_ - 1 >= kGreatestWidth)
        return fail(start, "width of no integer");
    if (count > kObjectLimit)
        return fail(start, "too many objects");
    if (table < kMagic.size() || table > start || (start - table) / offsetWidth_ < count)
        return fail(start, "offset table outside the list");
    objectsEnd_ = static_cast<std::size_t>(table);
    slots_.resize(static_cast<std::size_t>(count));
    return true;
}

// The object, read at its first reference; counted at each.
const BinaryReader::Slot* BinaryReader::resolve(std::uint64_t index, std::size_t from) {
    if (index >= slots_.size())
        return fail(from, "reference to no object");
    Slot& slot = slots_[static_cast<std::size_t>(index)];
    if (slot.isOpen)
        return fail(from, "object inside itself");
    if (!slot.object) {
        const std::size_t nodesBefore = nodes_++;
        const std::size_t contentBefore = content_;
        Object object{};
        if (!locate(static_cast<std::size_t>(index), object))
            return nullptr;
        if (isContent(object.type))
            content_ += object.payload.size();
        slot.isOpen = true;
        slot.object = make(object, slot);
        slot.isOpen = false;
        slot.nodes = static_cast<std::uint32_t>(nodes_ - nodesBefore);
        slot.content = static_cast<std::uint32_t>(content_ - contentBefore);
    } else {
        nodes_ += slot.nodes;
        content_ += slot.content;
    }
    if (!slot.object)
        return nullptr;
    if (nodes_ > kPropertyListNodeLimit)
        return fail(from, "too many values");
    if (content_ > kPropertyListFileLimit)
        return fail(from, "too much text and data");
    if (depth_ + slot.height > kPropertyListDepthLimit)
        return fail(from, "nested too deep");
    return &slot;
}

const BinaryReader::Slot* BinaryReader::resolveKey(std::uint64_t index, std::size_t from) {
    const std::size_t before = nodes_;
    const Slot* const slot = resolve(index, from);
    nodes_ = before;
    if (slot != nullptr && asKind<CFStringRef>(slot->object.get(), CFKind::String) == nullptr)
        return fail(from, "key that is no string");
    return slot;
}

bool BinaryReader::locate(std::size_t index, Object& object) {
    const Bytes entry = bytes_.subspan(objectsEnd_ + index * offsetWidth_, offsetWidth_);
    const std::uint64_t offset = bigEndian(entry);
    if (offset < kMagic.size() || offset >= objectsEnd_)
        return fail(objectsEnd_ + index * offsetWidth_, "offset outside the objects");
    object.offset = static_cast<std::size_t>(offset);
    const unsigned marker = bytes_[object.offset];
    object.type = static_cast<Type>(marker >> 4);
    object.low = marker & 0xF;
    std::size_t at = object.offset + 1;
    if (!readCount(at, object))
        return false;
    const std::size_t width = payloadWidth(object);
    if (width != 0 && object.count > (objectsEnd_ - at) / width)
        return fail(object.offset, "object beyond the objects' end");
    object.payload = bytes_.subspan(at, object.count * width);
    // Objects that share bytes could hold more than the file does.
    taken_ += at + object.payload.size() - object.offset;
    if (taken_ > objectsEnd_ - kMagic.size())
        return fail(object.offset, "objects that overlap");
    return true;
}

// Sets the count; `at` moves behind an integer that tells it.
bool BinaryReader::readCount(std::size_t& at, Object& object) {
    constexpr unsigned kGreatestExponent = 3;
    object.count = object.low;
    if (object.type == Type::Integer || object.type == Type::Real || object.type == Type::Date)
        object.count = std::size_t{1} << object.low;
    else if (object.type != Type::Single && object.low == kCountFollows) {
        const unsigned marker = at < objectsEnd_ ? bytes_[at] : 0U;
        const std::size_t size = std::size_t{1} << (marker & 0xF);
        if (static_cast<Type>(marker >> 4) != Type::Integer || (marker & 0xF) > kGreatestExponent ||
            size >= objectsEnd_ - at)
            return fail(object.offset, "malformed count");
        object.count = static_cast<std::size_t>(bigEndian(bytes_.subspan(at + 1, size)));
        at += 1 + size;
    }
    return true;
}

// Bytes of the payload for each one of the count.
std::size_t BinaryReader::payloadWidth(const Object& object) const {
    switch (object.type) {
    case Type::Single:
        return 0;
    case Type::Utf16:
        return 2;
    case Type::Array:
        return referenceWidth_;
    case Type::Dictionary:
        return 2 * referenceWidth_;
    default:
        return 1;
    }
}

BinaryReader::Value BinaryReader::make(const Object& object, Slot& slot) {
    switch (object.type) {
    case Type::Single:
        return makeSingle(object);
    case Type::Integer:
        return makeInteger(object);
    case Type::Real:
        return makeReal(object);
    case Type::Date:
        return makeDate(object);
    case Type::Data:
        return Value(new __CFData({object.payload.begin(), object.payload.end()}));
    case Type::Ascii:
        return makeAscii(object);
    case Type::Utf16:
        return makeUtf16(object);
    case Type::Array:
    case Type::Dictionary:
        return makeContainer(object, slot);
    }
    return fail(object.offset, "unknown type");
}

BinaryReader::Value BinaryReader::makeSingle(const Object& object) {
    if (object.low == kTrue)
        return Value::retained(kCFBooleanTrue);
    if (object.low == kFalse)
        return Value::retained(kCFBooleanFalse);
    return fail(object.offset, "unknown type");
}

// One to four bytes are unsigned, eight signed, sixteen hold what eight cannot.
BinaryReader::Value BinaryReader::makeInteger(const Object& object) {
    const Bytes payload = object.payload;
    if (payload.size() < 8)
        return Value(new __CFNumber(bigEndian(payload)));
    const std::uint64_t value = bigEndian(payload.last(8));
    if (payload.size() == 8)
        return Value(new __CFNumber(static_cast<std::int64_t>(value)));
    const std::uint64_t above = payload.size() == 16 ? bigEndian(payload.first(8)) : 1;
    if (above == 0)
        return Value(new __CFNumber(value));
    if (above == ~std::uint64_t{0} && value >> 63 != 0)
        return Value(new __CFNumber(static_cast<std::int64_t>(value)));
    return fail(object.offset, "integer too wide");
}

BinaryReader::Value BinaryReader::makeReal(const Object& object) {
    const std::uint64_t bits = bigEndian(object.payload);
    if (object.payload.size() == sizeof(float))
        return Value(new __CFNumber(double{std::bit_cast<float>(static_cast<std::uint32_t>(bits))}));
    if (object.payload.size() == sizeof(double))
        return Value(new __CFNumber(std::bit_cast<double>(bits)));
    return fail(object.offset, "real of unknown width");
}

BinaryReader::Value BinaryReader::makeDate(const Object& object) {
    const double time = std::bit_cast<double>(bigEndian(object.payload));
    if (object.payload.size() != sizeof time || !std::isfinite(time))
        return fail(object.offset, "malformed date");
    return Value(new __CFDate(time));
}

BinaryReader::Value BinaryReader::makeAscii(const Object& object) {
    if (object.count > kPropertyListStringLimit)
        return fail(object.offset, "string too long");
    if (!isAsciiText(object.payload))
        return fail(object.offset, "malformed string");
    return Value(__CFString::makeAscii({reinterpret_cast<const char*>(object.payload.data()), object.count}));
}

BinaryReader::Value BinaryReader::makeUtf16(const Object& object) {
    if (object.count > kPropertyListStringLimit)
        return fail(object.offset, "string too long");
    std::u16string units(object.count, u'\0');
    for (std::size_t i = 0; i < units.size(); ++i)
        units[i] = static_cast<char16_t>(bigEndian(object.payload.subspan(2 * i, 2)));
    const auto size = encodedSize(units, kCFStringEncodingUTF8);
    if (!size)
        return fail(object.offset, "malformed string");
    if (*size > kPropertyListStringLimit)
        return fail(object.offset, "string too long");
    return Value(__CFString::make(units));
}

BinaryReader::Value BinaryReader::makeContainer(const Object& object, Slot& slot) {
    if (depth_ == kPropertyListDepthLimit)
        return fail(object.offset, "nested too deep");
    if (object.count > kPropertyListNodeLimit - std::min(nodes_, kPropertyListNodeLimit))
        return fail(object.offset, "too many values");
    ++depth_;
    Value made = object.type == Type::Array ? makeArray(object, slot) : makeDictionary(object, slot);
    --depth_;
    ++slot.height;
    return made;
}

BinaryReader::Value BinaryReader::makeArray(const Object& object, Slot& slot) {
    __CFArray::Values values;
    values.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
        const Slot* const value = resolve(referenceAt(object, i), object.offset);
        if (value == nullptr)
            return {};
        slot.height = std::max(slot.height, value->height);
        values.push_back(value->object);
    }
    return Value(new __CFArray(std::move(values)));
}

// All keys, then all values.
BinaryReader::Value BinaryReader::makeDictionary(const Object& object, Slot& slot) {
    __CFDictionary::Entries entries;
    entries.reserve(object.count);
    for (std::size_t i = 0; i < object.count; ++i) {
        const Slot* const key = resolveKey(referenceAt(object, i), object.offset);
        const Slot* const value =
            key == nullptr ? nullptr : resolve(referenceAt(object, object.count + i), object.offset);
        if (value == nullptr)
            return {};
        slot.height = std::max(slot.height, value->height);
        entries.push_back(
            {CFRef<CFStringRef>::retained(static_cast<CFStringRef>(key->object.get())), value->object});
    }
    return Value(new __CFDictionary(std::move(entries)));
}

BinaryReader::Failure BinaryReader::fail(std::size_t offset, std::string_view reason) {
    error_ = "offset " + std::to_string(offset) + ": ";
    error_ += reason;
    return {};
}

} // namespace

bool isBinaryPropertyList(Bytes bytes) {
    constexpr std::string_view kName = kMagic.substr(0, kMagic.size() - kVersionSize);
    return bytes.size() >= kName.size() && std::equal(kName.begin(), kName.end(), bytes.begin());
}

CFRef<CFPropertyListRef> readBinaryPropertyList(Bytes bytes, std::string& error) {
    return BinaryReader(bytes).read(error);
}

} // namespace port
