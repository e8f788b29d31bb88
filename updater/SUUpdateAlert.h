#pragma once

#include "SUAppcastItem.h"
#include "SUUserDriver.h"

#include <QTextBrowser>
#include <QWidget>

#include <functional>

// The window that offers an update: its version, its release notes, and the
// choice to download it, skip it or be reminded later.
class SUUpdateAlert : public QWidget {
    Q_OBJECT
public:
    SUUpdateAlert(const QString& applicationName, const SUAppcastItem& item, const QString& installedVersion,
                  std::function<void(SUUserDriver::Choice)> reply);

    const SUAppcastItem& item() const { return m_item; }

    // Only web pages are opened; any other scheme is refused and logged.
    static bool openDownloadPage(const QUrl& page);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void choose(SUUserDriver::Choice choice);

    SUAppcastItem m_item;
    std::function<void(SUUserDriver::Choice)> m_reply;
};

// Release notes as plain rich text: nothing is fetched, no link is followed.
class SUReleaseNotesView : public QTextBrowser {
    Q_OBJECT
public:
    using QTextBrowser::QTextBrowser;
    QVariant loadResource(int type, const QUrl& name) override;
};
