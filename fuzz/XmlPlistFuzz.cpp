// libFuzzer target: the XML property-list reader (and the writers on what it accepts).
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (const auto value = plist::readXml(fuzzsupport::bytes(data, size))) {
        fuzzsupport::checkAccepted(*value);
        if (!plist::readXml(plist::writeXml(*value))) {
            std::fprintf(stderr, "accepted value does not survive an XML round trip\n");
            std::abort();
        }
    }
    return 0;
}
