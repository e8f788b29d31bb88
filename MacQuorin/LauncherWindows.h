#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

class QObject;
class SUUserDriver;

// What the launcher asks of its windows, on the main thread. Qt Gui and Widgets are behind it, in a module of
// the bundle's own that a start without a display never loads: a check from a timer maps neither.
class LauncherWindows {
public:
    virtual ~LauncherWindows() = default;
    // Shows found updates in a window, with the release notes in the language of the windows.
    virtual std::unique_ptr<SUUserDriver> makeUserDriver(const QString& applicationName) = 0;
    // The settings window, made on first use, shown and raised.
    virtual void showSettingsWindow() = 0;
    virtual bool hasVisibleWindows() const = 0;
    // Raises and focuses the visible windows.
    virtual void activate() = 0;
    // Hands the desktop's activation token to the next window activation.
    virtual void useActivationToken(const QByteArray& token) = 0;
    // Calls handler when the last window was closed, for as long as context lives.
    virtual void onLastWindowClosed(QObject* context, std::function<void()> handler) = 0;
};
