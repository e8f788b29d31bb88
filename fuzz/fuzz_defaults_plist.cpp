// The defaults file is outside input: any program of the user can write it.
#include "FuzzSupport.h"

#include "PlistDocument.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    auto document = PlistDocument::parse(FuzzSupport::bytes(data, size));
    if (!document)
        return 0;
    (void)document->toMap();
    (void)document->value(QStringLiteral("QREnabled"));
    // Whatever was read must still be readable after this program stores a key in it,
    // or the next start would move the user's settings aside.
    FUZZ_CHECK(document->setValue(QStringLiteral("QREnabled"), QStringLiteral("1")));
    const auto reread = PlistDocument::parse(document->toXml());
    FUZZ_CHECK(reread.has_value());
    FUZZ_CHECK(reread->value(QStringLiteral("QREnabled")) == QVariant(QStringLiteral("1")));
    return 0;
}
