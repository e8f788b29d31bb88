#include "FileURL.h"

#include <QStringDecoder>

QUrl FileURL::fromPath(const QByteArray& path)
{
    // Most names are plain ASCII: no decoding needed.
    bool ascii = true;
    for (const char c : path) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
    }
    if (ascii)
        return QUrl::fromLocalFile(QString::fromLatin1(path));
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString text = decoder(path);
    if (!decoder.hasError())
        return QUrl::fromLocalFile(text);
    return QUrl::fromEncoded("file://" + path.toPercentEncoding("/"), QUrl::TolerantMode);
}

QByteArray FileURL::toPath(const QUrl& url)
{
    return QByteArray::fromPercentEncoding(url.path(QUrl::FullyEncoded).toLatin1());
}
