#include "Storyboard.h"

#include "Bundle.h"
#include "FileManager.h"
#include "Platform.h"
#include "ViewController.h"
#include "WindowController.h"
#include "ZLButton.h"

#include <QBuffer>
#include <QCoreApplication>
#include <QUiLoader>
#include <QWidget>

using namespace Qt::Literals::StringLiterals;

namespace {

// Makes the product's own widget classes named in the storyboard.
class StoryboardLoader : public QUiLoader {
public:
    QWidget* createWidget(const QString& className, QWidget* parent, const QString& name) override
    {
        if (className != u"ZLButton"_s)
            return QUiLoader::createWidget(className, parent, name);
        return new ZLButton(parent); // named by the loader, as every widget
    }
};

// The content controller a scene names in its "viewController" property.
std::unique_ptr<ViewController> makeViewController(QWidget& view)
{
    const QString className = view.property("viewController").toString();
    if (className.isEmpty())
        return nullptr;
    if (className != u"ViewController"_s)
        qFatal("The storyboard names an unknown view controller class \"%s\"", qUtf8Printable(className));
    return std::make_unique<ViewController>(&view);
}

} // namespace

Storyboard Storyboard::storyboardWithName(const QString& name, const Bundle& bundle)
{
    return Storyboard(bundle.pathForResource(name + u".ui"_s));
}

std::unique_ptr<WindowController>
Storyboard::instantiateControllerWithIdentifier(const QString& identifier) const
{
    // Read without blocking and only when a regular file: a pipe in its place is an error, not a hang.
    auto contents = Platform::fileManager().contents(m_path);
    if (const auto* error = std::get_if<ZLError>(&contents))
        qFatal("The storyboard %s cannot be read: %s", qUtf8Printable(m_path),
               qUtf8Printable(error->description()));
    QBuffer file(&std::get<QByteArray>(contents));
    file.open(QIODevice::ReadOnly);

    // The loader would otherwise load every Designer plugin installed, Qt Quick's
    // among them; the scenes use standard widgets only.
    const QStringList libraryPaths = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    StoryboardLoader loader;
    QCoreApplication::setLibraryPaths(libraryPaths);

    std::unique_ptr<QWidget> window(loader.load(&file));
    if (!window || window->objectName() != identifier)
        qFatal("The storyboard %s has no scene \"%s\"%s%s", qUtf8Printable(m_path),
               qUtf8Printable(identifier), window ? "" : ": ",
               window ? "" : qUtf8Printable(loader.errorString()));
    std::unique_ptr<ViewController> content = makeViewController(*window);
    auto controller = std::make_unique<WindowController>(std::move(window), std::move(content));
    if (ViewController* viewController = controller->contentViewController())
        viewController->viewDidLoad();
    return controller;
}
