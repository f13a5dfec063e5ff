#include "strings/LMenuText.h"

#include <cstring>

void LStripAmpersand(char* out, const char* text) {
    for (; text != nullptr && *text != 0; ++text) {
        if (*text == '&' && *++text != '&') {
            --text;
            continue;
        }
        *out++ = *text;
    }
    *out = 0;
}

void LStripJPStyleAmpersand(char* out, const char* text) {
    while (text != nullptr && *text != 0) {
        if (text[0] != '(' || text[1] != '&') {
            *out++ = *text++;
            continue;
        }
        text = std::strchr(text, ')');
        if (text != nullptr)
            ++text;
    }
    *out = 0;
}

char* LStripFromFirstTabToEnd(char* text) {
    char* const pTab = std::strchr(text, '\t');
    if (pTab != nullptr)
        *pTab = 0;
    return pTab;
}

char* LPrepareForMenuItem(char* out, const char* text) {
    LStripAmpersand(out, text);
    return LStripFromFirstTabToEnd(out);
}

void LPrepareForDisplay(char* out, const char* text) {
    LStripAmpersand(out, text);
}
