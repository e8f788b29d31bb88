// The update feed comes from the network.
#include "FuzzSupport.h"

#include "SUAppcast.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::silenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QString error;
    const auto appcast = SUAppcast::parse(FuzzSupport::bytes(data, size), &error);
    if (!appcast) {
        FUZZ_CHECK(!error.isEmpty());
        return 0;
    }
    for (const QString& os : {QStringLiteral("linux"), QStringLiteral("macos")}) {
        const auto best = appcast->bestItem(os);
        if (!best)
            continue;
        FUZZ_CHECK(!best->versionString.isEmpty());
        FUZZ_CHECK(best->os.isEmpty() || best->os == os);
        (void)best->downloadPage().scheme();
    }
    return 0;
}
