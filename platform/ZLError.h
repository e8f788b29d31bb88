#pragma once

#include <QString>

// An error value with a domain, a code and a readable description, printed the
// way the platform prints its error objects.
class ZLError {
public:
    ZLError(QString domain, qint64 code, QString localizedDescription, QString underlying = {});

    // A failed system call: domain "NSPOSIXErrorDomain", the errno value as code.
    static ZLError fromErrno(int errorNumber, const QString& context = {});

    const QString& domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    const QString& localizedDescription() const { return m_description; }

    // Error Domain=<domain> Code=<code> "<description>" [UserInfo={NSUnderlyingError=...}]
    QString description() const;

    bool operator==(const ZLError&) const = default;

private:
    QString m_domain;
    qint64 m_code = 0;
    QString m_description;
    QString m_underlying;
};
