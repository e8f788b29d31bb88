#pragma once

#include "InstanceChannel.h"

#include <QString>

#include <memory>
#include <optional>

class QLocalServer;

// A local socket in the user's runtime directory, answered only for
// connections from the same user.
class LocalSocketInstanceChannel : public InstanceChannel {
public:
    explicit LocalSocketInstanceChannel(QString name = QStringLiteral("zelna-quorin"));
    ~LocalSocketInstanceChannel() override;

    bool forwardReopen() override;
    bool listen(std::function<void()> onReopen) override;

    // $XDG_RUNTIME_DIR/NAME.socket, or a private folder in /tmp without one.
    std::optional<QString> socketPath() const;

private:
    QString m_name;
    std::unique_ptr<QLocalServer> m_server;
};
