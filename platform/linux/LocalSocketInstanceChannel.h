#pragma once

#include "InstanceChannel.h"

#include <QString>

#include <memory>
#include <optional>

class QSocketNotifier;
class QDeadlineTimer;
class QLockFile;

// A local socket in the user's runtime directory, answered only for
// connections from the same user.
class LocalSocketInstanceChannel : public InstanceChannel {
public:
    explicit LocalSocketInstanceChannel(QString name = QStringLiteral("zelna-quorin"));
    ~LocalSocketInstanceChannel() override;

    Role claim(bool handOver) override;
    Role listen(std::function<void(const QByteArray&)> onReopen) override;
    void close() override;

    // $XDG_RUNTIME_DIR/NAME.socket, or a private folder in /tmp without one.
    std::optional<QString> socketPath() const;

private:
    bool forwardReopen(const QString& path, const QDeadlineTimer& deadline) const;

    QString m_name;
    std::optional<QString> m_path;             // the socket of the place claimed
    std::unique_ptr<QLockFile> m_lock;         // held for as long as this process is the launcher
    std::unique_ptr<QSocketNotifier> m_server; // on the listening socket, which lives with the process
};
