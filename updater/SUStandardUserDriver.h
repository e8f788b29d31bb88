#pragma once

#include "SUUserDriver.h"

#include <QPointer>
#include <QString>

class SUUpdateAlert;

// Shows found updates in an SUUpdateAlert window, one at a time.
class SUStandardUserDriver : public SUUserDriver {
public:
    explicit SUStandardUserDriver(QString applicationName) : m_applicationName(std::move(applicationName)) { }
    void showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                         std::function<void(Choice)> reply) override;

private:
    QString m_applicationName;
    QPointer<SUUpdateAlert> m_alert; // the window still open, if any
};
