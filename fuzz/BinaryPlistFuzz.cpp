// libFuzzer target: the binary property-list reader.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (const auto value = plist::readBinary(fuzzsupport::bytes(data, size)))
        fuzzsupport::checkAccepted(*value);
    return 0;
}
