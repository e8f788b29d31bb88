#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <optional>

// Reads the product's extended attributes, which mark stub files on disk.
class AttrManager {
public:
    struct Keys {
        static inline const QString isStub = QStringLiteral("is.zelna.stub");
        static inline const QString isZelna = QStringLiteral("is.zelna.share");
        static inline const QString bringFileOnline = QStringLiteral("zelna.download.file");
        static inline const QString zelnaValue = QStringLiteral("ZELNA");
        static constexpr int dataReqForZelnaLength = 6; // the five marker characters and one more
        static constexpr int dataReqLengthForInt = 2;
    };

    // Whether the file (a symbolic link is followed) carries the stub marker "ZELNA".
    // Every problem, of any kind, answers false.
    bool isStub(const QUrl& url) const;

private:
    // Exactly len - 1 bytes of the attribute read into a len-byte buffer, or nothing.
    std::optional<QByteArray> readValue(const QString& name, const QUrl& url, int len) const;
};
