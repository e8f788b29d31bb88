#include "AttrManager.h"

#include "FileManager.h"
#include "Platform.h"

std::optional<QByteArray> AttrManager::readValue(const QString& name, const QUrl& url, int len) const
{
    if (len <= 0)
        qFatal("AttrManager::readValue needs a buffer length above zero, not %d", len);
    QByteArray buffer(len, '\0');
    if (!url.isLocalFile() || Platform::fileManager().extendedAttribute(url.toLocalFile(), name, buffer) < 0)
        return std::nullopt;
    // The byte count is not used: a shorter value leaves zeros behind it, and the
    // last byte of a value that fills the buffer is dropped unseen.
    buffer.chop(1);
    return buffer;
}

bool AttrManager::isStub(const QUrl& url) const
{
    const auto bytes = readValue(Keys::isStub, url, Keys::dataReqForZelnaLength);
    if (!bytes)
        return false;
    for (const char byte : *bytes) {
        if (static_cast<unsigned char>(byte) > 127)
            return false; // not ASCII text
    }
    // All five characters count, a zero byte included: "ZELN" does not match.
    return QString::fromLatin1(*bytes) == Keys::zelnaValue;
}
