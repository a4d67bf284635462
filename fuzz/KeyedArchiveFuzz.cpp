// libFuzzer target: the keyed-archive decoder (on top of the binary and XML readers).
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (const auto value = plist::decodeKeyedArchiveDictionary(fuzzsupport::bytes(data, size)))
        fuzzsupport::checkAccepted(*value);
    return 0;
}
