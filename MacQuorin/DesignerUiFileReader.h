#pragma once

#include "UiFileReader.h"

#include <QObject>

// The storyboard module's entry point: Qt Designer files read with QUiLoader.
class DesignerUiFileReader : public QObject, public UiFileReader {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID UiFileReader_iid)
    Q_INTERFACES(UiFileReader)
public:
    QWidget* read(QIODevice* device, const CustomWidget& custom, QString* error) override;
};
