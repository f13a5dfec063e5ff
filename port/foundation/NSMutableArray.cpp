#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

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
    copy->texts_ = texts_;
    return copy;
}

bool NSMutableArray::containsObject(const NSString& text) const {
    return std::any_of(texts_.begin(), texts_.end(), equalTo(text.UTF8String()));
}

void NSMutableArray::addObjectsFromArray(const NSMutableArray& other) {
    const std::vector<NSRef<NSString>> added = other.texts_; // the array may be added to itself
    texts_.insert(texts_.end(), added.begin(), added.end());
}

void NSMutableArray::removeObjectsInArray(const NSMutableArray& others) {
    std::unordered_set<std::string> removed;
    for (const NSRef<NSString>& text : others.texts_)
        removed.emplace(text->UTF8String());
    std::erase_if(texts_, [&](const NSRef<NSString>& text) { return removed.contains(text->UTF8String()); });
}
