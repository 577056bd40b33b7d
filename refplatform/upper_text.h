// Upper-casing and case folding of whole texts for case-insensitive comparisons inside the
// reference platform.
#pragma once

#include <stddef.h>

#include <string>

// The upper-case form of the UTF-8 text (length bytes, NUL-terminated) into *out, by the rule of
// SLIBCUnicodeUTF8StrUpper (full Unicode case mapping) but with room for any growth. ASCII text
// takes a fast path with the same result. False when the text cannot be converted.
bool UpperText(const char* text, size_t length, std::string* out);

// The same for the full case folding of SLIBCUnicodeUTF8StrFold.
bool FoldText(const char* text, size_t length, std::string* out);

// Whether every character of the UTF-8 text beyond ASCII stays beyond ASCII both upper-cased and
// folded: then an ASCII keyword can only be found in the converted text where it is found in
// the text's ASCII runs, ignoring ASCII case. False for a text that is not valid UTF-8.
bool NonAsciiStaysNonAscii(const char* text, size_t length);
