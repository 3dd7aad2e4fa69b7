#include "ZQSomeIPPayloadUtf16.h"

#include <codecvt>
#include <locale>

// The converter is deprecated but still the reference for the code units a string becomes.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

namespace {

using Converter = std::wstring_convert<std::codecvt_utf8_utf16<char16_t>, char16_t>;

// One converter per thread: building its facet costs more than most conversions.
Converter& converter()
{
    thread_local Converter instance;
    return instance;
}

} // namespace

std::u16string zq_someip_utf8_to_utf16(const std::string& text)
{
    return converter().from_bytes(text);
}

std::string zq_someip_utf16_to_utf8(const std::u16string& units)
{
    return converter().to_bytes(units);
}

#pragma GCC diagnostic pop
