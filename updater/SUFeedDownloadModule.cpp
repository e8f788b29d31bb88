#include "SUFeedDownloadModule.h"

#include <QPluginLoader>

using namespace Qt::Literals::StringLiterals;

std::unique_ptr<SUFeedDownload> SUFeedDownloadModule::create(const QString& directory, QString* error)
{
    const QString path = directory + u'/' + QLatin1StringView(fileName);
    // Stays loaded once loaded: the loader going out of scope does not unload it.
    QPluginLoader loader(path);
    auto* factory = qobject_cast<SUFeedDownloadFactory*>(loader.instance());
    if (!factory) {
        *error = u"the network module "_s + path + u" cannot be loaded: "_s
                 + (loader.isLoaded() ? u"it offers no feed download"_s : loader.errorString());
        return nullptr;
    }
    return factory->create();
}
