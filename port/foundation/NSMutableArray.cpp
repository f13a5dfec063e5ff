#include <algorithm>
#include <string>
#include <unordered_set>

#include <Foundation/Foundation.h>

namespace {

auto equalTo(const char* text) {
    return [text](const NSRef<NSString>& other) { return other->isEqualToString(text); };
}

} // namespace

NSRef<NSMutableArray> NSMutableArray::array() {
    return NSRef<NSMutableArray>(new NSMutableArray);
}

NSRef<NSMutableArray> NSMutableArray::mutableCopy() const {
    NSRef<NSMutableArray> copy = array();
    copy->addObjectsFromArray(*this);
    return copy;
}

bool NSMutableArray::containsObject(const NSString& text) const {
    return std::any_of(texts_.begin(), texts_.end(), equalTo(text.UTF8String()));
}

void NSMutableArray::addObjectsFromArray(const NSMutableArray& other) {
    const unsigned long added = other.count(); // the array may be added to itself
    for (unsigned long i = 0; i < added; ++i)
        addObject(other.texts_[i]);
}

void NSMutableArray::removeObjectsInArray(const NSMutableArray& others) {
    std::unordered_set<std::string> removed;
    for (const NSRef<NSString>& text : others.texts_)
        removed.emplace(text->UTF8String());
    texts_.removeIf([&](const NSRef<NSString>& text) { return removed.contains(text->UTF8String()); });
}
