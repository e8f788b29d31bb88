#include "DesignerUiFileReader.h"

#include <QCoreApplication>
#include <QUiLoader>
#include <QWidget>

namespace {

// Asks the product for its own classes first.
class Loader : public QUiLoader {
public:
    explicit Loader(const UiFileReader::CustomWidget& custom) : m_custom(custom) { }
    QWidget* createWidget(const QString& className, QWidget* parent, const QString& name) override
    {
        if (QWidget* widget = m_custom(className, parent))
            return widget; // named by the loader, as every widget
        return QUiLoader::createWidget(className, parent, name);
    }

private:
    const UiFileReader::CustomWidget& m_custom;
};

} // namespace

QWidget* DesignerUiFileReader::read(QIODevice* device, const CustomWidget& custom, QString* error)
{
    // The loader would otherwise load every Designer plugin installed, Qt Quick's
    // among them; the scenes use standard widgets only.
    const QStringList libraryPaths = QCoreApplication::libraryPaths();
    QCoreApplication::setLibraryPaths({});
    Loader loader(custom);
    QCoreApplication::setLibraryPaths(libraryPaths);
    QWidget* widget = loader.load(device);
    if (!widget)
        *error = loader.errorString();
    return widget;
}
