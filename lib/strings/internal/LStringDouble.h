// The text of a double where whole numbers of 128 bits hold all that takes part in it, so that it is exact without
// the platform's arbitrary precision: for the print engine. Internal to the strings.
//
// Thread-safety: reentrant; reads the locale.
#pragma once

// Bytes at most.
constexpr int LStringDoubleLength = 32;

// Stores before pEnd what the platform's printf makes of a finite number that is not negative, for the conversions e,
// f and g of both cases; a negative precision is none. Returns where it begins; null when the number, the precision or
// the decimal point is out of range, or the program rounds otherwise than to the nearest: that is for the platform.
char* LStoreDouble(char* pEnd, char nConversion, int nPrecision, double nValue);
