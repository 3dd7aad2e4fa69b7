#ifndef ZQ_SOMEIP_PAYLOAD_UTF16_H
#define ZQ_SOMEIP_PAYLOAD_UTF16_H

#include <string>

#include "ZQSomeIPExport.h"

// UTF-8 <-> UTF-16 for string payloads, by the standard library's converter
// (std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>): its code units and its results
// on every input, valid or not, are the rule. What it lets through (a surrogate written in UTF-8
// becomes that unit; a sequence cut short at the end, or a high surrogate standing last, is dropped)
// passes here too; what it refuses throws its std::range_error ("wstring_convert::from_bytes" or
// "wstring_convert::to_bytes").
ZQ_SOMEIP_API std::u16string zq_someip_utf8_to_utf16(const std::string& text);
ZQ_SOMEIP_API std::string zq_someip_utf16_to_utf8(const std::u16string& units);

#endif // ZQ_SOMEIP_PAYLOAD_UTF16_H
