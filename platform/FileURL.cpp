#include "FileURL.h"

#include <QStringDecoder>

using namespace Qt::Literals::StringLiterals;

QUrl FileURL::fromPath(const QByteArray& path)
{
    // Most names are plain ASCII: no decoding needed.
    bool ascii = true;
    bool percent = false;
    for (const char c : path) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
        percent = percent || c == '%';
    }
    // An absolute path with no '%' (nothing to escape first) and no leading "//" (no host): set
    // as it is, it gives what fromLocalFile gives at less than half the cost, and a walk of a
    // large tree makes one URL per file.
    if (ascii && !percent && path.startsWith('/') && !path.startsWith("//")) {
        QUrl url;
        url.setScheme(u"file"_s);
        url.setPath(QString::fromLatin1(path), QUrl::TolerantMode);
        return url;
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
