#pragma once

#include "SUUserDriver.h"

#include <QPointer>
#include <QString>

class SUUpdateAlert;

// Shows found updates in an SUUpdateAlert window, one at a time, with the release notes in the language of
// the windows ("de", "fr", "en") where the item has them.
class SUStandardUserDriver : public SUUserDriver {
public:
    explicit SUStandardUserDriver(QString applicationName, QString language = QStringLiteral("en"))
        : m_applicationName(std::move(applicationName))
        , m_language(std::move(language))
    { }
    void setReleaseNotesFetch(const ReleaseNotesFetch& fetch) override { m_fetch = fetch; }
    void showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                         std::function<void(Choice)> reply) override;

private:
    QString m_applicationName;
    QString m_language;
    ReleaseNotesFetch m_fetch;
    QPointer<SUUpdateAlert> m_alert; // the window still open, if any
};
