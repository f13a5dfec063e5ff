// The formatter beside the host's snprintf, one conversion at a time, into a buffer of every size and into a
// string. All arguments of an input are of one kind, to which its conversions are bent.
#include "strings/LStringFormat.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

constexpr std::size_t kMostConversions = 8; // as many as there are arguments
constexpr std::size_t kDirectiveLength = 257;

auto* const print = static_cast<std::uint32_t (*)(char*, unsigned long, const char*, ...)>(tplsnprintf);
auto* const printString =
    static_cast<std::uint32_t (*)(LStringLongTemplate<char>&, const char*, ...)>(tsprintfappend);
auto* const hostPrint = static_cast<int (*)(char*, std::size_t, const char*, ...)>(std::snprintf);

void require(bool holds, const char* what, const std::string& format) {
    if (holds)
        return;
    std::fprintf(stderr, "%s: %s\n", what, format.c_str());
    std::abort();
}

// Flags, which stand anywhere here.
constexpr char kFlags[] = "-+ #'I";
// Conversions and lengths that take other arguments than theirs.
constexpr char kOthers[] = "aAEFGm*hljztL";

// What the host refuses or takes minutes for is not compared.
bool comparable(const std::string& format) {
    std::size_t digits = 0;
    for (const char c : format) {
        if (std::strchr(kFlags, c) != nullptr)
            return false;
        const bool digit = c >= '0' && c <= '9';
        digits = digit && (digits != 0 || c != '0') ? digits + 1 : 0;
        if (digits > 4)
            return false;
    }
    return true;
}

template <typename Value>
std::string host(const std::string& directive, char conversion, Value value) {
    char text[260] = "";
    if (std::count(directive.begin(), directive.end(), '.') < 2)
        hostPrint(text, sizeof(text), ("%" + directive + conversion).c_str(), value);
    return text;
}

std::string convert(const std::string& directive, char conversion, int value) {
    return std::strchr("diuxXco", conversion) != nullptr ? host(directive, conversion, value) : "";
}

std::string convert(const std::string& directive, char conversion, double value) {
    return std::strchr("efg", conversion) != nullptr ? host(directive, conversion, value) : "";
}

std::string convert(const std::string&, char conversion, const char* value) {
    return conversion == 's' && value != nullptr ? value : "";
}

// Whether the conversion takes an argument of this kind; what is no conversion takes an integer.
template <typename Value>
bool taken(const Value&, char conversion) {
    return !std::is_same_v<Value, double> || std::strchr("efg", conversion) != nullptr;
}

template <typename Value>
std::string naive(const std::string& format, const Value* values) {
    std::string text;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] != '%') {
            text += format[i];
            continue;
        }
        const std::size_t end = std::min(format.find_first_not_of("0123456789.", i + 1), format.size());
        const std::string directive = format.substr(i + 1, std::min(end - i - 1, kDirectiveLength));
        i = end;
        if (i >= format.size())
            break;
        if (format[i] == '%')
            text += '%';
        else if (taken(*values, format[i]))
            text += convert(directive, format[i], *values++);
    }
    return text;
}

// The zeros are for what is no conversion.
template <typename Value>
void compare(const std::string& format, const Value (&v)[kMostConversions], std::size_t room) {
    const char* const f = format.c_str();
    const bool known = comparable(format);
    const std::string expected = known ? naive(format, v) : "";
    const std::unique_ptr<char[]> buffer(new char[room + 1]);
    print(buffer.get(), room + 1, f, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], 0, 0, 0, 0, 0, 0, 0, 0);
    require(!known || buffer.get() == expected.substr(0, room), "buffer differs", format);
    LStringLongTemplate<char> string;
    string = "old";
    printString(string, f, v[0], v[1], v[2], v[3], v[4], v[5], v[6], v[7], 0, 0, 0, 0, 0, 0, 0, 0);
    require(!known || string.GetText() == "old" + expected, "string differs", format);
}

// The format without the conversions in `wrong`, and with no more of them than there are arguments.
std::string bend(std::string format, const std::string& wrong, char right) {
    format.resize(std::strlen(format.c_str()));
    std::size_t count = 0;
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && ++count > kMostConversions)
            return format.substr(0, i);
        if (wrong.find(format[i]) != std::string::npos)
            format[i] = right;
    }
    return format;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 10)
        return 0;
    std::uint64_t bits = 0;
    std::memcpy(&bits, data + 2, sizeof(bits));
    const std::string format(reinterpret_cast<const char*>(data) + 10, size - 10);
    const std::size_t room = data[1];
    if (data[0] % 3 == 0) {
        const int number = static_cast<int>(bits);
        const int values[] = {number, 0, -1, 7, number / 1000, 100, 'a', number % 100};
        compare(bend(format, std::string("efgs") + kOthers, 'd'), values, room);
    } else if (data[0] % 3 == 1) {
        double number = 0;
        std::memcpy(&number, &bits, sizeof(number));
        const double values[] = {number, 0.5, -1.0, 1e20, 9.9995, -0.0, 1e-7, 123456789.0};
        compare(bend(format, std::string("diuxXcos") + kOthers, 'f'), values, room);
    } else {
        const std::string text = format.c_str();
        const char* const values[] = {text.c_str(),        "",   nullptr, "abcd", "abcdefgh",
                                      "0123456789abcdefg", "%s", "x"};
        const std::string bent = bend(format, std::string("diuxXcoefg") + kOthers, 's');
        if (comparable(bent)) // texts are filled up to any width
            compare(bent, values, room);
    }
    return 0;
}
