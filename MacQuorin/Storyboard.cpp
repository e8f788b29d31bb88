#include "Storyboard.h"

#include "Bundle.h"
#include "FileManager.h"
#include "Platform.h"
#include "PluginModule.h"
#include "UiFileReader.h"
#include "ViewController.h"
#include "WindowController.h"
#include "ZLButton.h"

#include <QBuffer>
#include <QWidget>

using namespace Qt::Literals::StringLiterals;

namespace {

// The product's own widget classes named in the storyboard.
QWidget* makeOwnWidget(const QString& className, QWidget* parent)
{
    return className == u"ZLButton"_s ? new ZLButton(parent) : nullptr;
}

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
    return Storyboard(bundle.pathForResource(name + u".ui"_s), bundle.modulePath());
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

    QString error;
    auto* reader = PluginModule::instance<UiFileReader>(m_modulePath, UiFileReader::moduleName, &error);
    if (!reader)
        qFatal("The storyboard %s cannot be read without its reader: %s", qUtf8Printable(m_path),
               qUtf8Printable(error));
    std::unique_ptr<QWidget> window(reader->read(&file, makeOwnWidget, &error));
    if (!window || window->objectName() != identifier)
        qFatal("The storyboard %s has no scene \"%s\"%s%s", qUtf8Printable(m_path),
               qUtf8Printable(identifier), window ? "" : ": ", window ? "" : qUtf8Printable(error));
    std::unique_ptr<ViewController> content = makeViewController(*window);
    auto controller = std::make_unique<WindowController>(std::move(window), std::move(content));
    if (ViewController* viewController = controller->contentViewController())
        viewController->viewDidLoad();
    return controller;
}
