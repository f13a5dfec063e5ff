// The characters that end a line, alone or in pairs. Internal to this folder.
#pragma once

inline bool LIsLineEnd(char character) {
    return character == '\n' || character == '\r';
}
