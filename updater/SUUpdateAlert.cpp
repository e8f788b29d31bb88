#include "SUUpdateAlert.h"

#include "Platform.h"
#include "SystemLog.h"
#include "Workspace.h"

#include <QCloseEvent>
#include <QDialogButtonBox>
#include <QLabel>
#include <QLoggingCategory>
#include <QPointer>
#include <QPushButton>
#include <QRegularExpression>
#include <QStringDecoder>
#include <QTextBrowser>
#include <QVBoxLayout>

using namespace Qt::Literals::StringLiterals;

Q_LOGGING_CATEGORY(lcUpdater, "zelna.updater", QtWarningMsg)

QVariant SUReleaseNotesDocument::loadResource(int, const QUrl&)
{
    return {};
}

namespace {

// Fetched notes as text: in the charset their reply names, else as the HTML says, else UTF-8.
QString decoded(const QByteArray& bytes, const QString& type, bool plain)
{
    static const QRegularExpression charset(u";\\s*charset=\"?([^\";]+)"_s,
                                            QRegularExpression::CaseInsensitiveOption);
    QStringDecoder decoder(charset.match(type).captured(1).toLatin1().constData());
    if (!decoder.isValid())
        decoder = plain ? QStringDecoder(QStringDecoder::Utf8) : QStringDecoder::decoderForHtml(bytes);
    return decoder.decode(bytes);
}

} // namespace

SUUpdateAlert::SUUpdateAlert(const QString& applicationName, const SUAppcastItem& item,
                             const QString& installedVersion, std::function<void(SUUserDriver::Choice)> reply,
                             const SUUserDriver::ReleaseNotesFetch& fetch)
    : m_item(item)
    , m_reply(std::move(reply))
{
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(tr("Software Update"));
    setObjectName(u"SUUpdateAlert"_s);

    auto* heading = new QLabel(tr("A new version of %1 is available!").arg(applicationName));
    QFont bold = heading->font();
    bold.setBold(true);
    bold.setPointSizeF(bold.pointSizeF() * 1.2);
    heading->setFont(bold);
    auto* info = new QLabel(tr("%1 %2 is now available\u2014you have %3. Would you like to download it now?")
                                .arg(applicationName, item.displayVersionString, installedVersion));
    info->setWordWrap(true);
    info->setTextFormat(Qt::PlainText);

    auto* notesTitle = new QLabel(tr("&Release Notes:"));
    auto* notes = new QTextBrowser;
    notes->setDocument(new SUReleaseNotesDocument(notes));
    notes->setOpenLinks(false); // followed only as Download is: web pages, in the browser
    connect(notes, &QTextBrowser::anchorClicked, this, [](const QUrl& link) { openDownloadPage(link); });
    if (item.releaseNotesURL.isEmpty()) {
        notes->setHtml(item.itemDescription.left(maxNotesLength));
    } else {
        notes->setPlainText(tr("Loading the release notes\u2026"));
        auto show = [notes = QPointer<QTextBrowser>(notes)](const QByteArray& bytes, const QString& error,
                                                            const QString& type) {
            const bool plain = type.startsWith(u"text/plain"_s, Qt::CaseInsensitive);
            if (!notes)
                return; // the window was closed first
            if (!error.isEmpty())
                notes->setPlainText(tr("The release notes could not be loaded."));
            else if (plain)
                notes->setPlainText(decoded(bytes, type, plain).left(maxNotesLength));
            else
                notes->setHtml(decoded(bytes, type, plain).left(maxNotesLength));
        };
        if (fetch)
            fetch(item.releaseNotesURL, std::move(show));
        else
            show({}, u"nothing fetches them"_s, {});
    }
    notes->setAccessibleName(tr("Release notes"));
    notes->setAccessibleDescription(tr("What changed in this version"));
    notesTitle->setBuddy(notes);

    auto* buttons = new QDialogButtonBox;
    QPushButton* skip = buttons->addButton(tr("&Skip This Version"), QDialogButtonBox::DestructiveRole);
    QPushButton* later = buttons->addButton(tr("Remind Me &Later"), QDialogButtonBox::RejectRole);
    QPushButton* download = buttons->addButton(tr("&Download"), QDialogButtonBox::AcceptRole);
    skip->setAccessibleDescription(tr("Do not offer this version again"));
    later->setAccessibleDescription(tr("Close this window; a later check offers the version again"));
    download->setAccessibleDescription(tr("Open the download page in the web browser"));
    download->setDefault(true);
    download->setAutoDefault(true);
    connect(skip, &QPushButton::clicked, this, [this] { choose(SUUserDriver::Choice::SkipThisVersion); });
    connect(later, &QPushButton::clicked, this, [this] { choose(SUUserDriver::Choice::RemindLater); });
    connect(download, &QPushButton::clicked, this, [this] {
        openDownloadPage(m_item.downloadPage());
        choose(SUUserDriver::Choice::Download);
    });

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(info);
    layout->addSpacing(8);
    layout->addWidget(notesTitle);
    layout->addWidget(notes, 1);
    layout->addWidget(buttons);
    resize(560, 400);
    download->setFocus();
}

void SUUpdateAlert::openDownloadPage(const QUrl& page)
{
    const QString scheme = page.scheme().toLower();
    if (page.isValid() && (scheme == u"https"_s || scheme == u"http"_s))
        Platform::workspace().openURL(page);
    else
        SystemLog::logText(u"Updater: not opening the download address \""_s + page.toString()
                           + u"\": only http and https addresses are opened"_s);
}

void SUUpdateAlert::choose(SUUserDriver::Choice choice)
{
    if (auto reply = std::exchange(m_reply, nullptr))
        reply(choice);
    close();
}

void SUUpdateAlert::closeEvent(QCloseEvent* event)
{
    // Closing the window is a "later".
    if (auto reply = std::exchange(m_reply, nullptr))
        reply(SUUserDriver::Choice::RemindLater);
    QWidget::closeEvent(event);
}
