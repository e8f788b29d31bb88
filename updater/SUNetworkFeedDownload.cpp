#include "SUNetworkFeedDownload.h"

#include <QNetworkReply>
#include <QTimer>

using namespace Qt::Literals::StringLiterals;

void SUNetworkFeedDownload::start(const Request& request, Finished finished)
{
    QNetworkRequest networkRequest(request.url);
    networkRequest.setTransferTimeout(int(request.timeout.count()));
    networkRequest.setMaximumRedirectsAllowed(5);
    networkRequest.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                QNetworkRequest::NoLessSafeRedirectPolicy);
    networkRequest.setHeader(QNetworkRequest::UserAgentHeader, request.userAgent);
    QNetworkReply* reply = m_network.get(networkRequest);
    const qint64 maxBytes = request.maxBytes;
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply,
                     [reply, maxBytes](qint64 received, qint64 total) {
                         if (received > maxBytes || total > maxBytes) {
                             reply->setProperty("tooLarge", true);
                             reply->abort();
                         }
                     });
    // The transfer time-out only notices silence; a server that trickles bytes
    // for ever is stopped here.
    QTimer::singleShot(request.deadline, reply, [reply] {
        reply->setProperty("overdue", true);
        reply->abort();
    });
    const auto deadline = request.deadline;
    QObject::connect(reply, &QNetworkReply::finished, reply, [reply, maxBytes, deadline, finished] {
        reply->deleteLater();
        if (reply->property("tooLarge").toBool())
            finished({}, u"stopped: the download is larger than "_s + QString::number(maxBytes) + u" bytes"_s,
                     {});
        else if (reply->property("overdue").toBool())
            finished({},
                     u"stopped: the download did not arrive within "_s + QString::number(deadline.count())
                         + u" ms"_s,
                     {});
        else if (reply->error() != QNetworkReply::NoError)
            finished({}, u"failed: "_s + reply->errorString(), {});
        else
            finished(reply->readAll(), {}, reply->header(QNetworkRequest::ContentTypeHeader).toString());
    });
}
