// libFuzzer target: the old-style text reader; what it accepts must describe and read back.
#include "FuzzSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const auto value = plist::readOpenStep(fuzzsupport::bytes(data, size));
    if (!value)
        return 0;
    // A string alone describes without quotes, so it is compared inside an array; anything
    // else is compared as is (wrapping a collection would add a level past the depth cap).
    const bool bareString = value->typeId() == QMetaType::QString;
    const QVariant described = bareString ? QVariant(QVariantList{*value}) : *value;
    const auto again = plist::readOpenStep(plist::description(described).toUtf8());
    if (!again || *again != described) {
        std::fprintf(stderr, "description does not read back to the same value\n");
        std::abort();
    }
    return 0;
}
