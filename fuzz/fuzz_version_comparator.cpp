// Versions come from the update feed and from the bundle. The input holds two
// versions separated by the first line break.
#include "FuzzSupport.h"

#include "SUStandardVersionComparator.h"

namespace {
int sign(int value)
{
    return (value > 0) - (value < 0);
}
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    const qsizetype split = bytes.indexOf('\n');
    const QString a = QString::fromUtf8(split < 0 ? bytes : bytes.left(split));
    const QString b = split < 0 ? QString() : QString::fromUtf8(bytes.mid(split + 1));

    FUZZ_CHECK(SUStandardVersionComparator::compareVersions(a, a) == 0);
    FUZZ_CHECK(sign(SUStandardVersionComparator::compareVersions(a, b))
               == -sign(SUStandardVersionComparator::compareVersions(b, a)));
    return 0;
}
