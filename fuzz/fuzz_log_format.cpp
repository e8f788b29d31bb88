// Log lines are used as formats, and they carry text from files and feeds.
// The input is the format, then optionally a NUL and text arguments separated by NULs.
#include "FuzzSupport.h"

#include "PrintfFormat.h"

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    QList<QByteArray> parts = FuzzSupport::bytes(data, size).split('\0');
    const QByteArray format = parts.takeFirst();
    QList<PrintfFormat::Argument> args;
    qsizetype argumentBytes = 0;
    for (const QByteArray& part : parts) {
        args.append(part == "(nil)" ? PrintfFormat::Argument() : PrintfFormat::Argument(part));
        argumentBytes += part.size();
    }
    const QByteArray line = PrintfFormat::render(format, args);
    // Every byte of output comes from the format, an argument or a capped field.
    const qsizetype directives = format.count('%') + 1;
    FUZZ_CHECK(line.size() <= format.size() + argumentBytes * directives
                                  + directives * (PrintfFormat::maxFieldWidth + 64));
    (void)PrintfFormat::render(format);
    return 0;
}
