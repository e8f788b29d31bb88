#pragma once

#include <QString>

#include <memory>

class Bundle;
class WindowController;

// The bundle's user-interface description NAME.ui; its top-level widget is the
// scene a window controller is made from. It is read by the bundle's UI module.
class Storyboard {
public:
    static Storyboard storyboardWithName(const QString& name, const Bundle& bundle);

    // The scene with this identifier. A missing scene is a programming error and ends the process.
    std::unique_ptr<WindowController> instantiateControllerWithIdentifier(const QString& identifier) const;

private:
    Storyboard(QString path, QString modulePath)
        : m_path(std::move(path))
        , m_modulePath(std::move(modulePath))
    { }
    QString m_path;
    QString m_modulePath;
};
