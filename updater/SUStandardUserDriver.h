#pragma once

#include "SUUserDriver.h"

#include <QString>

// Shows found updates in an SUUpdateAlert window.
class SUStandardUserDriver : public SUUserDriver {
public:
    explicit SUStandardUserDriver(QString applicationName) : m_applicationName(std::move(applicationName)) { }
    void showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                         std::function<void(Choice)> reply) override;

private:
    QString m_applicationName;
};
