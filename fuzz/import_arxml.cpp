// ARXML import: one description or two split at a NUL byte (references cross files; forced ARXML, so
// that other roots and inputs that are not well-formed come back as errors); see fuzz_import.h for what
// is checked.
#include "fuzz_import.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    return fuzz::importOne(data, size, ZQSomeIP::ZQSomeIPImportDialect::Arxml);
}
