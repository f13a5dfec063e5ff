// Text, character sets, paths and dates: what asks the system for nothing.
#include "Operations.h"

#include <cstdlib>
#include <cstring>
#include <datetime/LDateTime.h>
#include <files/LFile.h>
#include <strings/LCharsets.h>
#include <strings/LString.h>
#include <strings/LStringFormat.h>

namespace counts {
namespace {

template <typename Call>
Work again(Call call) {
    return [call](unsigned times) {
        while (times-- > 0)
            call();
    };
}

Work dates(const char* zone) {
    return [zone](unsigned times) {
        if (zone != nullptr)
            setenv("TZ", zone, 1);
        else
            unsetenv("TZ");
        char text[64];
        for (long time = 1433149500; times-- > 0; time += 100)
            LDateTime(time).GetDateTime(text);
    };
}

Work readDates(const char* zone) {
    return [zone](unsigned times) {
        if (zone != nullptr)
            setenv("TZ", zone, 1);
        else
            unsetenv("TZ");
        long time = 0;
        while (times-- > 0)
            LDateTime::SetDateYYYYHMMHDDTimeHHCMMCSS(time, "2015-06-01 10:45:00");
    };
}

char buffer[1000];
wchar_t wide[1000];

void appendInLoop(unsigned times) {
    LStringLongTemplate<char> text;
    while (times-- > 0)
        text.Append("a word ");
}

} // namespace

std::vector<Operation> textOperations() {
    return {
        {"`tplsnprintf` of `%s_%u`",
         counted(again([] { tplsnprintf(buffer, sizeof buffer, "%s_%u", "Application", 20714U); })),
         {}},
        {"`tplsnprintf` of `%f`",
         counted(again([] { tplsnprintf(buffer, sizeof buffer, "%f", 0.7284); })),
         {}},
        {"`Append` to a long string in a loop", counted(appendInLoop, 100, 10000), {}},
        {"24 bytes of UTF-8 to UTF-32",
         counted(again([] { LCopyUTF32FromUTF8(wide, "Caf\xC3\xA9 Preferences2.plist", std::size(wide)); })),
         {}},
        {"the file part of a path",
         counted(again([] { LFile::_GetFileFromPath(buffer, "/Applications/An.app/Contents/notes.txt"); })),
         {}},
        {"a date to text, `TZ` set", counted(dates("Europe/Berlin")), {}},
        {"a date to text, machine's zone", counted(dates(nullptr)), {}},
        {"a date from text, `TZ` set", counted(readDates("Europe/Berlin")), {}},
        {"a date from text, machine's zone", counted(readDates(nullptr)), {}},
    };
}

} // namespace counts
