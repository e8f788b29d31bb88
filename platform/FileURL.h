#pragma once

#include <QByteArray>
#include <QUrl>

// File URLs that keep a path's bytes, also when they are not valid UTF-8.
class FileURL {
public:
    static QUrl fromPath(const QByteArray& path);
    static QByteArray toPath(const QUrl& url);
};
