// Between times and the fields of the local calendar, and numbers out of text, for the files of LDateTime.
//
// Thread-safety: reentrant.
#pragma once

#include <ctime>

// False for a time whose year does not fit; the fields are then not defined.
bool LGetLocalFields(long t, tm& fields);

// Stores the time of the fields, which are brought into their ranges; the daylight-saving flag counts. False,
// and t stays, when there is none.
bool LStoreLocalFields(long& t, tm& fields);

// The first day of the year 2000 at midnight, the daylight-saving flag open.
tm LStartFields();

// A year as it is read becomes that of the calendar structure: 0 to 69 and less count from 2000, 70 to 1899
// from 1900, later ones are themselves.
int LYearField(int year);

// Appends a digit; what exceeds the largest number stays that.
int LAppendDigit(int number, char digit);

constexpr bool LIsDigit(char character) {
    return character >= '0' && character <= '9';
}

// Reads whole numbers, one more than there are separators, as scanf's "%d" does; a blank among the separators
// stands for any white space. Stops at what does not fit, and the numbers from there on stay as they are.
// Numbers beyond the range of int become its ends.
void LReadNumbers(const char* text, const char* separators, int* numbers);
