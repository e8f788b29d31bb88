#pragma once

#include <QPluginLoader>
#include <QString>

// A Qt plugin of the bundle's own, loaded when first needed rather than with
// the program, so that what it links is mapped only by the starts that use it.
class PluginModule {
public:
    // The instance of Interface in the module fileName of directory; nothing, and why, when it
    // cannot be loaded.
    template <class Interface>
    static Interface* instance(const QString& directory, const char* fileName, QString* error)
    {
        const QString path = directory + u'/' + QLatin1StringView(fileName);
        // Stays loaded: the loader going out of scope does not unload it.
        QPluginLoader loader(path);
        QObject* object = loader.instance();
        auto* module = qobject_cast<Interface*>(object);
        if (!module)
            *error = QStringLiteral("the module ") + path + QStringLiteral(" cannot be loaded: ")
                     + (object ? QStringLiteral("it does not offer ")
                                     + QLatin1StringView(qobject_interface_iid<Interface*>())
                               : loader.errorString());
        return module;
    }
};
