#pragma once

#include <QString>
#include <QtPlugin>

#include <functional>

class QIODevice;
class QWidget;

// Reads a Qt Designer file into widgets. Qt UiTools, behind it, is in a module
// of the bundle's own that only a start showing a window loads.
class UiFileReader {
public:
    static constexpr const char* moduleName = "libzq-ui-reader.so";
    // A widget of one of the product's own classes, or nothing for any other class.
    using CustomWidget = std::function<QWidget*(const QString& className, QWidget* parent)>;

    virtual ~UiFileReader() = default;
    // The top-level widget of the file on device; nothing, and why, when there is none.
    virtual QWidget* read(QIODevice* device, const CustomWidget& custom, QString* error) = 0;
};

#define UiFileReader_iid "com.zelna.Quorin.UiFileReader/1"
Q_DECLARE_INTERFACE(UiFileReader, UiFileReader_iid)
