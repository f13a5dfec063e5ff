#include "strings/LArray.h"
#include "strings/LString.h"
#include "strings/LStringFormat.h"
#include "strings/LStringList.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>

namespace {

using String = LStringLongTemplate<char>;

void ExpectHolds(const String& actual, const std::string& text, std::size_t capacity) {
    ASSERT_EQ(std::string(actual.GetText()), text);
    ASSERT_EQ(actual.GetLength(), text.size());
    ASSERT_EQ(actual.GetCapacity(), capacity);
}

TEST(LString, GrowsOnlyWhenItMayAndMust) {
    String text;
    text.SetLength(0);
    text.GrowToSize(0);
    EXPECT_EQ(text.GetData(), nullptr);
    text.Append(nullptr);
    ExpectHolds(text, "", 1);
    text = "kept";
    EXPECT_THROW(text.GrowToSize(1UL << 32), std::bad_alloc);
    EXPECT_THROW(text.GrowToSize(~0UL), std::bad_alloc);
    ExpectHolds(text, "kept", 5);
    text = nullptr;
    ExpectHolds(text, "", 1);
    EXPECT_THROW(LStringLongTemplate<wchar_t>().GrowToSize(1UL << 30), std::bad_alloc);
}

TEST(LString, IsTerminatedWhenFormattingFails) {
    String text;
    text.GrowToSize(260);
    std::memset(text.GetData(), '#', 259); // no terminator is there by chance
    text.SetLength(0);
    LStringLongTemplateAppender<char> writer(text);
    const volatile unsigned long nMany = (1UL << 32) - 1;
    EXPECT_THROW((writer.AddChars("so far", 6), writer.AddChars("", nMany)), std::bad_alloc);
    ExpectHolds(text, "so far", 260);
    EXPECT_EQ(writer.GetGrownCapacity(260UL << 22, 260UL << 22), nMany); // four times is too much
}

// Often about as long as the capacity that formatting starts with.
std::string RandomText(std::mt19937& random) {
    std::string text(random() % 4 == 0 ? 257 + random() % 5 : random() % 300, ' ');
    for (char& nChar : text)
        nChar = static_cast<char>('a' + random() % 26);
    return text;
}

// Changes the string and its model alike; returns the capacity that the string is to have at least.
std::size_t ChangeBoth(std::mt19937& random, String& text, std::string& model) {
    std::string const other = RandomText(random);
    const std::size_t from = random() % (model.size() + 1);
    const bool bOwn = random() % 2 == 0; // from its own array
    const char* const pAdded = bOwn ? text.GetText() + from : other.c_str();
    const std::size_t capacity = text.GetCapacity();
    String source;
    switch (random() % 5) {
    case 0:
        model = bOwn ? model.substr(from) : other;
        text = pAdded;
        return 0;
    case 1:
        model += bOwn ? model.substr(from) : other;
        text.Append(pAdded);
        return capacity;
    case 2:
        model = other;
        source = other.c_str();
        text.Assign(source);
        text.Assign(text);
        ExpectHolds(source, "", 0);
        return 0;
    case 3:
        model += other;
        EXPECT_EQ(tsprintfappend(text, "%s", other.c_str()), model.size());
        break;
    default:
        model = other + "-7";
        EXPECT_EQ(sprintf(text, "%s", other.c_str()), other.size());
        EXPECT_EQ(text.tsprintfappend("%d", -7), model.size());
    }
    // What is formatted into grows by four as soon as it is full.
    std::size_t grown = std::max<std::size_t>(capacity, 260);
    while (grown <= model.size())
        grown *= 4;
    return grown;
}

TEST(LString, FollowsTheModel) {
    std::mt19937 random(41);
    String text;
    std::string model;
    for (int nStep = 0; nStep < 8000; ++nStep) {
        const std::size_t least = ChangeBoth(random, text, model);
        ASSERT_NO_FATAL_FAILURE(ExpectHolds(text, model, std::max(least, model.size() + 1))) << nStep;
    }
}

TEST(LArray, HasNothingWhenMovedFrom) {
    LArray<int> array(3), other(std::move(array));
    LVector<int> vector, second;
    vector.SetSize(3);
    (second = std::move(vector)).SetSize(2);
    EXPECT_EQ(array.GetCount() + vector.GetSize(), 0U);
    EXPECT_EQ(other.GetCount() + second.GetSize(), 5U);
}

TEST(LStringList, FollowsTheModel) {
    std::mt19937 random(42);
    LStringListTemplate<char> list;
    std::vector<std::string> model;
    std::size_t capacity = 255;
    for (int nStep = 0; nStep < 6000; ++nStep) {
        const unsigned long nChoice = random() % 100;
        if (nChoice < 70) {
            capacity = model.size() == capacity ? 8 * capacity + 7 : capacity;
            model.push_back(RandomText(random));
            char* const pNew = list.Add(model.back().empty() ? 0 : model.back().size() + 1);
            ASSERT_EQ(*pNew, 0);
            std::strcpy(pNew, model.back().c_str());
        } else if (nChoice < 99) {
            std::size_t const index = random() % (model.size() + 2);
            list.Delete(index);
            if (index < model.size())
                model.erase(model.begin() + static_cast<std::ptrdiff_t>(index));
        } else if (model.size() > 2100) {
            list.Clear();
            model.clear();
        }
        ASSERT_EQ(list.GetCount(), model.size());
        ASSERT_EQ(list.GetCapacity(), capacity);
        ASSERT_EQ(list.GetItems()[model.size()], nullptr);
        std::uint32_t const index = static_cast<std::uint32_t>(random() % list.GetCapacity());
        ASSERT_TRUE(index >= model.size() || list[index] == model[index]) << nStep;
    }
    EXPECT_EQ(capacity, 16383U);
}

} // namespace
