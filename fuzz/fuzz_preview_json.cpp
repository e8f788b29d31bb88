// The preview file is shared with the file-manager extension; it is read from disk
// exactly as the settings window reads it.
#include "FuzzSupport.h"

#include "ZLFileManager.h"

namespace {
ZLFileManager* manager = nullptr;
QString filePath;
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    FuzzSupport::silenceLog();
    qputenv("XDG_DATA_HOME", FuzzSupport::scratchFolder().toUtf8());
    manager = new ZLFileManager;
    const auto& url = manager->communicationFileURL();
    FUZZ_CHECK(url.has_value());
    filePath = url->toLocalFile();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const QByteArray bytes = FuzzSupport::bytes(data, size);
    FuzzSupport::writeFile(filePath, bytes);

    const std::optional<bool> state = manager->previewStateEnabled();
    // Only a real Boolean counts; a present answer must come from a file that says so.
    if (state)
        FUZZ_CHECK(bytes.contains(*state ? "true" : "false"));
    return 0;
}
