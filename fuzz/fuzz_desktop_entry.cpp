// Desktop entries on the data folders can be written by any program of the user.
#include "FuzzSupport.h"

#include "platform/linux/DesktopApplications.h"
#include "platform/linux/XdgLoginItems.h"

namespace {
QString entryPath;
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::silenceLog();
    entryPath = FuzzSupport::scratchFolder() + QStringLiteral("/com.example.Fuzz.desktop");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzSupport::writeFile(entryPath, FuzzSupport::bytes(data, size));

    const auto entry = DesktopApplications::readEntry(entryPath);
    if (!entry)
        return 0;
    FUZZ_CHECK(!entry->exec.isEmpty());
    (void)DesktopApplications::absoluteProgram(entry->exec);
    const QString exec = XdgLoginItems::execWithProgram(entry->exec, QStringLiteral("/usr/bin/true"));
    (void)exec;
    return 0;
}
