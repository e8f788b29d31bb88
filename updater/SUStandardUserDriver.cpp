#include "SUStandardUserDriver.h"

#include "SUUpdateAlert.h"

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcUpdater)

void SUStandardUserDriver::showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                                           std::function<void(Choice)> reply)
{
    auto* alert = new SUUpdateAlert(m_applicationName, item, installedVersion, std::move(reply));
    alert->show();
    alert->raise();
    alert->activateWindow();
    qCDebug(lcUpdater, "update alert shown for version %s", qUtf8Printable(item.versionString));
}
