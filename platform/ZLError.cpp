#include "ZLError.h"

#include <cstring>

using namespace Qt::Literals::StringLiterals;

ZLError::ZLError(QString domain, qint64 code, QString localizedDescription, QString underlying)
    : m_domain(std::move(domain))
    , m_code(code)
    , m_description(std::move(localizedDescription))
    , m_underlying(std::move(underlying))
{ }

ZLError ZLError::fromErrno(int errorNumber, const QString& context)
{
    return ZLError(QStringLiteral("NSPOSIXErrorDomain"), errorNumber,
                   QString::fromLocal8Bit(std::strerror(errorNumber)), context);
}

QString ZLError::description() const
{
    QString text = u"Error Domain="_s + m_domain + u" Code="_s + QString::number(m_code) + u" \""_s
                   + m_description + u'"';
    if (!m_underlying.isEmpty())
        text += u" UserInfo={NSUnderlyingError="_s + m_underlying + u'}';
    return text;
}
