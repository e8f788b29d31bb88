#include "ZLError.h"

#include <cstring>

using namespace Qt::Literals::StringLiterals;

ZLError::ZLError(QString domain, qint64 code, QString localizedDescription, QString userInfo)
    : m_domain(std::move(domain))
    , m_code(code)
    , m_description(std::move(localizedDescription))
    , m_userInfo(std::move(userInfo))
{ }

ZLError ZLError::fromErrno(int errorNumber, const QString& path)
{
    return ZLError(QStringLiteral("NSPOSIXErrorDomain"), errorNumber, reason(errorNumber),
                   path.isEmpty() ? QString() : u"NSFilePath="_s + path);
}

QString ZLError::reason(int errorNumber)
{
    return QString::fromLocal8Bit(std::strerror(errorNumber));
}

QString ZLError::description() const
{
    QString text = u"Error Domain="_s + m_domain + u" Code="_s + QString::number(m_code) + u" \""_s
                   + m_description + u'"';
    if (!m_userInfo.isEmpty())
        text += u" UserInfo={"_s + m_userInfo + u'}';
    return text;
}
