#include "Storyboard.h"

#include "MacQuorin/Bundle.h"
#include "MacQuorin/WindowController.h"

#include <QCoreApplication>
#include <QFile>
#include <QUiLoader>
#include <QWidget>

using namespace Qt::Literals::StringLiterals;

Storyboard Storyboard::storyboardWithName(const QString& name, const Bundle& bundle)
{
    return Storyboard(bundle.pathForResource(name + u".ui"_s));
}

std::unique_ptr<WindowController>
Storyboard::instantiateControllerWithIdentifier(const QString& identifier) const
{
    QFile file(m_path);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The storyboard %s cannot be read: %s", qUtf8Printable(m_path),
               qUtf8Printable(file.errorString()));

    // The loader would otherwise load every Designer plugin installed, Qt Quick's
    // among them; the scenes use standard widgets only.
    const QStringList libraryPaths = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    QUiLoader loader;
    QCoreApplication::setLibraryPaths(libraryPaths);

    std::unique_ptr<QWidget> window(loader.load(&file));
    if (!window || window->objectName() != identifier)
        qFatal("The storyboard %s has no scene \"%s\"%s%s", qUtf8Printable(m_path),
               qUtf8Printable(identifier), window ? "" : ": ",
               window ? "" : qUtf8Printable(loader.errorString()));
    return std::make_unique<WindowController>(std::move(window));
}
