#pragma once

#include <QObject>
#include <QStringList>

#include <atomic>

class ApplicationDelegate;
class LauncherWindows;

// The shared application object: activation policy, activation, and the
// delegate's launch, reopen and last-window questions.
class Application : public QObject {
    Q_OBJECT
public:
    enum ActivationPolicy { Regular = 0, Accessory = 1, Prohibited = 2 };

    // arguments: the process's own, as it was started; windows: none without a display or their module.
    explicit Application(QStringList arguments, ActivationPolicy initialPolicy = Accessory,
                         LauncherWindows* windows = nullptr);
    ~Application() override;

    static Application* shared();

    const QStringList& arguments() const { return m_arguments; }
    LauncherWindows* windows() const { return m_windows; }
    ActivationPolicy activationPolicy() const { return m_policy.load(); }
    bool setActivationPolicy(ActivationPolicy policy);
    // Raises and focuses the application's windows.
    void activateIgnoringOtherApps(bool ignoringOtherApps);

    void setDelegate(ApplicationDelegate* delegate) { m_delegate = delegate; }
    void finishLaunching();
    // A later start of the application asked this one to reopen, with the desktop's
    // activation token for it, if any.
    void reopen(const QByteArray& activationToken = {});

private:
    void lastWindowClosed();
    bool hasVisibleWindows() const;

    QStringList m_arguments;
    LauncherWindows* m_windows;
    std::atomic<ActivationPolicy> m_policy;
    ApplicationDelegate* m_delegate = nullptr;
};
