// What both property-list targets check: a list that was read is written or refused, and its written form is
// read back to the same form.
#pragma once

#include <cstdlib>
#include <string>

#include "corefoundation/PropertyList.h"

inline void checkRewriting(const port::CFRef<CFPropertyListRef>& list) {
    std::string first;
    std::string second;
    std::string error;
    if (!list || !port::writeXMLPropertyList(list.get(), first, error))
        return;
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(first.data());
    const auto again = port::readXMLPropertyList({bytes, first.size()}, error);
    if (!again || !port::writeXMLPropertyList(again.get(), second, error) || first != second)
        std::abort();
}
