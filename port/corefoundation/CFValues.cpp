#include "corefoundation/CFValues.h"

#include "corefoundation/CFString.h"

#include <cmath>
#include <cstring>
#include <limits>

namespace {

constinit port::CFImmortal<__CFBoolean> booleanTrue{true};
constinit port::CFImmortal<__CFBoolean> booleanFalse{false};

// 2^63 and 2^64 are exact as reals, the greatest integers below them are not.
constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

double realOf(const __CFNumber& number) {
    if (number.isReal)
        return number.real;
    return number.isNegative ? static_cast<double>(static_cast<std::int64_t>(number.bits))
                             : static_cast<double>(number.bits);
}

// A whole number equals a real one when neither loses anything as the other.
bool equalsReal(const __CFNumber& whole, double real) {
    if (whole.isNegative)
        return real >= -kTwoTo63 && real < 0 &&
               static_cast<std::int64_t>(real) == static_cast<std::int64_t>(whole.bits) &&
               realOf(whole) == real;
    return real >= 0 && real < kTwoTo64 && static_cast<std::uint64_t>(real) == whole.bits &&
           realOf(whole) == real;
}

// The nearest value of the type; `exact` tells whether it is the number itself.
template <typename Integer>
Integer nearest(const __CFNumber& number, bool& exact) {
    using Limits = std::numeric_limits<Integer>;
    Integer result = 0;
    if (!number.isReal) {
        const auto value = static_cast<std::int64_t>(number.bits);
        if (number.isNegative)
            result = value < Limits::min() ? Limits::min() : static_cast<Integer>(value);
        else
            result = number.bits > static_cast<std::uint64_t>(Limits::max()) ? Limits::max()
                                                                             : static_cast<Integer>(value);
        exact = static_cast<std::uint64_t>(std::int64_t{result}) == number.bits &&
                number.isNegative == (result < 0);
        return result;
    }
    const double beyond = -static_cast<double>(Limits::min());
    if (std::isnan(number.real))
        result = 0;
    else if (number.real >= beyond)
        result = Limits::max();
    else if (number.real <= -beyond)
        result = Limits::min();
    else
        result = static_cast<Integer>(number.real);
    exact = number.real < beyond && static_cast<double>(result) == number.real;
    return result;
}

template <typename Value>
void store(Value value, void* out) {
    std::memcpy(out, &value, sizeof value);
}

} // namespace

constinit const CFBooleanRef kCFBooleanTrue = &booleanTrue.value;
constinit const CFBooleanRef kCFBooleanFalse = &booleanFalse.value;

bool __CFData::equals(const CFObject& other) const {
    return bytes == static_cast<const __CFData&>(other).bytes;
}

bool __CFNumber::equals(const CFObject& other) const {
    const auto& number = static_cast<const __CFNumber&>(other);
    if (isReal && number.isReal)
        return real == number.real || (std::isnan(real) && std::isnan(number.real));
    if (isReal)
        return equalsReal(number, real);
    if (number.isReal)
        return equalsReal(*this, number.real);
    return bits == number.bits && isNegative == number.isNegative;
}

bool __CFDate::equals(const CFObject& other) const {
    return time == static_cast<const __CFDate&>(other).time;
}

CFTypeID CFDataGetTypeID() {
    return static_cast<CFTypeID>(port::CFKind::Data);
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
    return new __CFData(std::vector<std::uint8_t>(bytes, bytes + length));
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
    return data->bytes.data();
}
CFIndex CFDataGetLength(CFDataRef data) {
    return static_cast<CFIndex>(data->bytes.size());
}

CFTypeID CFBooleanGetTypeID() {
    return static_cast<CFTypeID>(port::CFKind::Boolean);
}
Boolean CFBooleanGetValue(CFBooleanRef boolean) {
    return boolean->value;
}

CFTypeID CFNumberGetTypeID() {
    return static_cast<CFTypeID>(port::CFKind::Number);
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value) {
    bool exact = false;
    switch (type) {
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        store(nearest<std::int32_t>(*number, exact), value);
        break;
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
        store(nearest<std::int64_t>(*number, exact), value);
        break;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
        exact = number->isReal || equalsReal(*number, realOf(*number));
        store(realOf(*number), value);
        break;
    }
    return exact;
}

CFStringRef CFErrorCopyDescription(CFErrorRef error) {
    return port::makeString(error->description).release();
}
