#include <port/locale.h>

#include <clocale>
#include <port/bsd.h>

namespace {

constexpr std::size_t kNameSize = 64; // names of locales; a longer one has no UTF-8 form tried

} // namespace

const char* port_setlocale(int category, const char* name) {
    const int native = category == PORT_LC_ALL ? LC_ALL : category;
    if (name == nullptr || *name == '\0')
        return std::setlocale(native, name);
    char withCharset[kNameSize];
    strlcpy(withCharset, name, sizeof withCharset);
    if (strlcat(withCharset, ".UTF-8", sizeof withCharset) < sizeof withCharset) {
        if (const char* const set = std::setlocale(native, withCharset))
            return set;
    }
    return std::setlocale(native, name);
}
