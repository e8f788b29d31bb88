#include "FakePlatform.h"

#include "DefaultsSuite.h"
#include "Platform.h"

using namespace Qt::Literals::StringLiterals;

namespace {

class FakeSuite : public DefaultsSuite {
public:
    explicit FakeSuite(FakePlatform& owner) : m_owner(owner) { }
    QVariant value(const QString& key) override { return m_owner.defaults.value(key); }
    bool setValue(const QString& key, const QVariant& value) override
    {
        m_owner.note(u"defaults "_s + key + u'=' + value.toString());
        m_owner.defaults.insert(key, value);
        return true;
    }

private:
    FakePlatform& m_owner;
};

} // namespace

FakePlatform::~FakePlatform() = default;

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

void FakePlatform::note(const QString& step)
{
    const QMutexLocker locker(&m_mutex);
    m_journal.append(step);
}

QStringList FakePlatform::journal() const
{
    const QMutexLocker locker(&m_mutex);
    return m_journal;
}

bool FakePlatform::hasPendingOpen() const
{
    const QMutexLocker locker(&m_mutex);
    return bool(m_pendingOpen);
}

void FakePlatform::deliverOpen()
{
    OpenHandler handler;
    {
        const QMutexLocker locker(&m_mutex);
        std::swap(handler, m_pendingOpen);
    }
    const std::optional<ZLError> error = openError;
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

QList<RunningApplication> FakePlatform::runningApplications()
{
    note(u"list"_s);
    return running;
}

QList<RunningApplication> FakePlatform::runningApplications(const QString& bundleIdentifier)
{
    note(u"list "_s + bundleIdentifier);
    QList<RunningApplication> matching;
    for (const RunningApplication& application : std::as_const(running)) {
        if (application.bundleIdentifier == bundleIdentifier)
            matching.append(application);
    }
    return matching;
}

bool FakePlatform::activate(const RunningApplication& application)
{
    note(u"activate "_s + QString::number(application.pid));
    return true;
}

bool FakePlatform::forceTerminate(const RunningApplication& application)
{
    note(u"kill "_s + QString::number(application.pid));
    return true;
}

std::optional<QUrl> FakePlatform::urlForApplication(const QString& bundleIdentifier)
{
    note(u"locate "_s + bundleIdentifier);
    return serviceLocation;
}

void FakePlatform::openApplication(const QUrl& location, OpenHandler handler)
{
    note(u"open "_s + location.toString());
    const QMutexLocker locker(&m_mutex);
    m_pendingOpen = std::move(handler);
}

bool FakePlatform::launchApplication(const QString& name)
{
    note(u"launch "_s + name);
    return launchAnswer;
}

bool FakePlatform::openURL(const QUrl& url)
{
    note(u"openURL "_s + url.toString());
    return true;
}

bool FakePlatform::setEnabled(const QString& bundleIdentifier, bool enabled)
{
    note(u"login "_s + bundleIdentifier + (enabled ? u" on"_s : u" off"_s));
    return true;
}

int FakePlatform::run(const QString& program, const QStringList& arguments)
{
    note(u"run "_s + program + u' ' + arguments.join(u' '));
    return commandStatus;
}

bool FakePlatform::isAtLeast(int major, int minor, int) const
{
    return modernSystem || major < 10 || (major == 10 && minor < 15);
}
