#include "FakePlatform.h"

#include "DefaultsSuite.h"
#include "Platform.h"

#include <thread>

using namespace Qt::Literals::StringLiterals;

namespace {

class FakeSuite : public DefaultsSuite {
public:
    explicit FakeSuite(FakePlatform& owner) : m_owner(owner) { }
    // A null pointer stands for a suite that cannot be read.
    std::optional<QVariant> readValue(const QString& key) override
    {
        const QVariant stored = m_owner.defaults.value(key);
        return stored.typeId() == QMetaType::Nullptr ? std::nullopt : std::optional(stored);
    }
    bool setValue(const QString& key, const QVariant& value) override
    {
        m_owner.defaults.insert(key, value);
        return m_owner.note(u"defaults "_s + key + u'=' + value.toString());
    }

private:
    FakePlatform& m_owner;
};

} // namespace

void FakePlatform::install()
{
    // Not owned: the test keeps this object alive while the services are in use.
    const std::shared_ptr<FakePlatform> self(this, [](FakePlatform*) {});
    PlatformServices services;
    services.defaults = self;
    services.workspace = self;
    services.loginItems = self;
    services.commandRunner = self;
    services.osVersion = self;
    Platform::replace(services);
}

QStringList FakePlatform::journal() const
{
    const QMutexLocker locker(&m_mutex);
    return m_journal;
}

void FakePlatform::deliverOpen()
{
    OpenHandler handler;
    {
        const QMutexLocker locker(&m_mutex);
        std::swap(handler, m_pendingOpen);
    }
    const std::optional<ZLError> error = openError;
    if (handler)
        std::thread([&handler, error] {
            handler(error ? std::nullopt : std::optional<qint64>(4242), error);
        }).join();
}

std::unique_ptr<DefaultsSuite> FakePlatform::open(const QString& suiteName)
{
    if (!defaultsOpenable || suiteName != u"K4WQ7ZT2RB.group.zelna.Quorin"_s)
        return nullptr;
    return std::make_unique<FakeSuite>(*this);
}

QList<RunningApplication> FakePlatform::runningApplications(const QString& bundleIdentifier)
{
    QList<RunningApplication> matching = running;
    matching.removeIf(
        [&](const RunningApplication& app) { return app.bundleIdentifier != bundleIdentifier; });
    return note(u"list "_s + bundleIdentifier, matching);
}

void FakePlatform::openApplication(const QUrl& location, OpenHandler handler)
{
    note(u"open "_s + location.toString());
    const QMutexLocker locker(&m_mutex);
    m_pendingOpen = std::move(handler);
}
