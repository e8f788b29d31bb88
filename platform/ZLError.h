#pragma once

#include <QString>

// An error value with a domain, a code and a readable description, printed the
// way the platform prints its error objects.
class ZLError {
public:
    // userInfo: further detail, printed as it stands ("NSFilePath=/a/b").
    ZLError(QString domain, qint64 code, QString localizedDescription, QString userInfo = {});

    // A failed system call: domain "NSPOSIXErrorDomain", the errno value as code,
    // and the file it was about, if any.
    static ZLError fromErrno(int errorNumber, const QString& path = {});
    // The system's words for an errno value, as a log line gives the reason.
    static QString reason(int errorNumber);

    const QString& domain() const { return m_domain; }
    qint64 code() const { return m_code; }
    const QString& localizedDescription() const { return m_description; }

    // Error Domain=<domain> Code=<code> "<description>" [UserInfo={<userInfo>}]
    QString description() const;

    bool operator==(const ZLError&) const = default;

private:
    QString m_domain;
    qint64 m_code = 0;
    QString m_description;
    QString m_userInfo;
};
