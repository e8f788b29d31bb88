#pragma once

#include "LauncherWindows.h"

#include <QTranslator>

#include <memory>

class Bundle;
class WindowController;

// The launcher's windows with Qt Widgets: the settings window from the bundle's storyboard and the update
// window, in the user's language where the bundle has a translation for it.
class WidgetWindows : public LauncherWindows {
public:
    explicit WidgetWindows(const Bundle& bundle);
    ~WidgetWindows() override;

    std::unique_ptr<SUUserDriver> makeUserDriver(const QString& applicationName) override;
    void showSettingsWindow() override;
    bool hasVisibleWindows() const override;
    void activate() override;
    void useActivationToken(const QByteArray& token) override;
    void onLastWindowClosed(QObject* context, std::function<void()> handler) override;

    // The settings window's controller, made on first use.
    WindowController& settingsWindow();

private:
    const Bundle& m_bundle;
    std::unique_ptr<QTranslator> m_translator; // none for the texts as written
    std::unique_ptr<WindowController> m_settings;
};
