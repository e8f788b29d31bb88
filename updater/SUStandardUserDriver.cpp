#include "SUStandardUserDriver.h"

#include "SUStandardVersionComparator.h"
#include "SUUpdateAlert.h"

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcUpdater)

void SUStandardUserDriver::showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                                           std::function<void(Choice)> reply)
{
    // A window left open is not joined by another each day: it comes forward, showing
    // the newest version found.
    const bool older
        = m_alert
          && SUStandardVersionComparator::compareVersions(item.versionString, m_alert->item().versionString)
                 < 0;
    if (!older) {
        QPointer<SUUpdateAlert> previous
            = std::exchange(m_alert, new SUUpdateAlert(m_applicationName, item.localized(m_language),
                                                       installedVersion, std::move(reply), m_fetch));
        if (previous) {
            m_alert->setGeometry(previous->geometry());
            m_alert->show();   // first: the last window closing would end the application
            previous->close(); // a "later" for the version it showed
        }
    }
    m_alert->show();
    m_alert->raise();
    m_alert->activateWindow();
    qCDebug(lcUpdater, "update alert shown for version %s", qUtf8Printable(m_alert->item().versionString));
}
