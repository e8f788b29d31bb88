#pragma once

#include "SUAppcastItem.h"
#include "SUUserDriver.h"

#include <QTextDocument>
#include <QWidget>

#include <functional>

// The window that offers an update: its version, its release notes, and the
// choice to download it, skip it or be reminded later.
class SUUpdateAlert : public QWidget {
    Q_OBJECT
public:
    // Linked release notes are fetched with fetch, and shown when they come.
    SUUpdateAlert(const QString& applicationName, const SUAppcastItem& item, const QString& installedVersion,
                  std::function<void(SUUserDriver::Choice)> reply,
                  const SUUserDriver::ReleaseNotesFetch& fetch = {});

    const SUAppcastItem& item() const { return m_item; }

    // Release notes beyond this many characters are not shown.
    static constexpr qsizetype maxNotesLength = 64 * 1024;

    // Only web pages are opened; any other scheme is refused and logged.
    static void openDownloadPage(const QUrl& page);

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void choose(SUUserDriver::Choice choice);

    SUAppcastItem m_item;
    std::function<void(SUUserDriver::Choice)> m_reply;
};

// Release notes as rich text that loads nothing: no file, no network, no data URL
// (an image of a pipe or of /dev/zero would hang the window or fill memory).
class SUReleaseNotesDocument : public QTextDocument {
    Q_OBJECT
public:
    using QTextDocument::QTextDocument;
    QVariant loadResource(int type, const QUrl& name) override;
};
