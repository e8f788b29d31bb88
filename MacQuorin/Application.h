#pragma once

#include <QObject>
#include <QStringList>

#include <atomic>

class ApplicationDelegate;

// The shared application object: activation policy, activation, and the
// delegate's launch, reopen and last-window questions.
class Application : public QObject {
    Q_OBJECT
public:
    enum ActivationPolicy { Regular = 0, Accessory = 1, Prohibited = 2 };

    // arguments: the process's own, as it was started.
    explicit Application(QStringList arguments, ActivationPolicy initialPolicy = Accessory);
    ~Application() override;

    static Application* shared();

    const QStringList& arguments() const { return m_arguments; }
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
    static bool hasVisibleWindows();

    QStringList m_arguments;
    std::atomic<ActivationPolicy> m_policy;
    ApplicationDelegate* m_delegate = nullptr;
};
