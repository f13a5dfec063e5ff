#include "strings/LArray.h"
#include "strings/LString.h"
#include "strings/LStringFormat.h"
#include "strings/LStringList.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace {

using String = LStringLongTemplate<char>;

void ExpectHolds(const String& actual, const std::string& text, std::size_t capacity) {
    ASSERT_EQ(std::string(actual.GetText()), text);
    ASSERT_EQ(actual.GetLength(), text.size());
    ASSERT_EQ(actual.GetCapacity(), capacity);
}

TEST(LString, StaysWithoutArrayUntilItIsNeeded) {
    String text;
    text.SetLength(0);
    text.GrowToSize(0);
    EXPECT_EQ(text.GetData(), nullptr);
    EXPECT_STREQ(LUTF8StringLongRef(text), "");
    text.Append(nullptr);
    ExpectHolds(text, "", 1);
    text = nullptr;
    ExpectHolds(text, "", 1);
}

TEST(LString, RefusesMoreThan32BitsOfBytes) {
    String text;
    text = "kept";
    EXPECT_THROW(text.GrowToSize(1UL << 32), std::bad_alloc);
    EXPECT_THROW(text.GrowToSize(~0UL), std::bad_alloc);
    ExpectHolds(text, "kept", 5);
    LStringLongTemplate<wchar_t> wide;
    EXPECT_THROW(wide.GrowToSize(1UL << 30), std::bad_alloc);
    EXPECT_EQ(wide.GetData(), nullptr);
}

// Growth of a string that is formatted into: by four as soon as it is full, however the characters arrive.
TEST(LString, GrowsByFourWhenFull) {
    struct {
        int nLength;
        unsigned nCapacity;
    } const rows[] = {{0, 260}, {259, 260}, {260, 1040}, {1039, 1040}, {1040, 4160}, {9000, 16640}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.nLength);
        std::string const expected(static_cast<std::size_t>(row.nLength), 'x');
        String atOnce;
        EXPECT_EQ(atOnce.sprintf("%s", expected.c_str()), expected.size());
        ExpectHolds(atOnce, expected, row.nCapacity);
        String singly;
        LStringLongTemplateWriter<char> writer(singly);
        for (const char nChar : expected)
            writer.AddChar(nChar);
        singly.SetLength(writer.GetCount());
        ExpectHolds(singly, expected, row.nCapacity);
    }
}

std::string RandomText(std::mt19937& random, unsigned long nMost) {
    std::string text(random() % (nMost + 1), ' ');
    for (char& nChar : text)
        nChar = static_cast<char>('a' + random() % 26);
    return text;
}

TEST(LString, FollowsTheModel) {
    std::mt19937 random(41);
    for (int nRun = 0; nRun < 200; ++nRun) {
        String text;
        std::string model;
        std::size_t capacity = 0;
        for (int nStep = 0; nStep < 40; ++nStep) {
            std::string const other = RandomText(random, 300);
            const std::size_t from = model.empty() ? 0 : random() % model.size();
            switch (random() % 7) {
            case 0:
                text = other.c_str();
                model = other;
                capacity = model.size() + 1;
                break;
            case 1:
                text.Append(other.c_str());
                model += other;
                capacity = std::max(capacity, model.size() + 1);
                break;
            case 2: // from its own array
                text.Append(text.GetText() + from);
                model += model.substr(from);
                capacity = std::max(capacity, model.size() + 1);
                break;
            case 3:
                text = text.GetText() + from;
                model = model.substr(from);
                capacity = model.size() + 1;
                break;
            case 4: {
                String source;
                source = other.c_str();
                text.Assign(source);
                text.Assign(text);
                ExpectHolds(source, "", 0);
                model = other;
                capacity = model.size() + 1;
                break;
            }
            default:
                const bool bAppend = random() % 2 == 0;
                model = (bAppend ? model : "") + other + "-7";
                capacity = std::max<std::size_t>(capacity, 260);
                while (capacity <= model.size())
                    capacity *= 4;
                std::uint32_t const nLength = bAppend ? tsprintfappend(text, "%s%d", other.c_str(), -7)
                                                      : sprintf(text, "%s%d", other.c_str(), -7);
                ASSERT_EQ(nLength, model.size());
            }
            ASSERT_NO_FATAL_FAILURE(ExpectHolds(text, model, capacity))
                << "run " << nRun << " step " << nStep;
            if (model.size() > 5000) {
                text = "";
                model.clear();
                capacity = 1;
            }
        }
    }
}

TEST(LStringList, FollowsTheModel) {
    std::mt19937 random(42);
    LStringListTemplate<char> list;
    std::vector<std::string> model;
    std::size_t capacity = 255;
    for (int nStep = 0; nStep < 6000; ++nStep) {
        const unsigned long nChoice = random() % 100;
        if (nChoice < 70) {
            std::string const text = RandomText(random, 12);
            if (model.size() == capacity)
                capacity = 8 * capacity + 7;
            char* const pNew = list.Add(text.empty() ? 0 : text.size() + 1);
            ASSERT_EQ(*pNew, 0);
            text.copy(pNew, text.size());
            pNew[text.size()] = 0;
            model.push_back(text);
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
        if (!model.empty()) {
            std::uint32_t const index = static_cast<std::uint32_t>(random() % model.size());
            ASSERT_EQ(list[index], model[index]) << nStep;
        }
    }
    EXPECT_EQ(capacity, 16383U);
}

TEST(LVector, KeepsWhatFits) {
    LVector<int> vector;
    vector.SetSize(2);
    vector[0] = 4;
    vector[1] = 5;
    const int* const pSame = vector.GetData();
    vector.SetSize(2);
    EXPECT_EQ(vector.GetData(), pSame);
    vector.SetSize(100);
    EXPECT_EQ(vector[1], 5);
    vector.SetSize(1);
    EXPECT_EQ(vector[0], 4);
    EXPECT_EQ(vector.GetSize(), 1U);
    vector.SetSize(0);
    EXPECT_EQ(vector.GetData(), nullptr);
}

} // namespace
