#include "FakePlatform.h"

#include "platform/Platform.h"

using namespace Qt::Literals::StringLiterals;

class FakePlatform::Suite : public DefaultsSuite {
public:
    explicit Suite(FakePlatform& owner) : m_owner(owner) { }
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

class FakePlatform::Defaults : public DefaultsStore {
public:
    explicit Defaults(FakePlatform& owner) : m_owner(owner) { }
    std::unique_ptr<DefaultsSuite> open(const QString& suiteName) override
    {
        if (!m_owner.defaultsOpenable || suiteName != u"K4WQ7ZT2RB.group.zelna.Quorin"_s)
            return nullptr;
        return std::make_unique<Suite>(m_owner);
    }

private:
    FakePlatform& m_owner;
};

class FakePlatform::FakeWorkspace : public Workspace {
public:
    explicit FakeWorkspace(FakePlatform& owner) : m_owner(owner) { }
    QList<RunningApplication> runningApplications() override
    {
        m_owner.note(u"list"_s);
        return m_owner.running;
    }
    bool forceTerminate(const RunningApplication& application) override
    {
        m_owner.note(u"kill "_s + QString::number(application.pid));
        return true;
    }
    std::optional<QUrl> urlForApplication(const QString& bundleIdentifier) override
    {
        m_owner.note(u"locate "_s + bundleIdentifier);
        return m_owner.serviceLocation;
    }
    void openApplication(const QUrl& location, OpenHandler handler) override
    {
        m_owner.note(u"open "_s + location.toString());
        const QMutexLocker locker(&m_owner.m_mutex);
        m_owner.m_pendingOpen = std::move(handler);
    }
    bool launchApplication(const QString& name) override
    {
        m_owner.note(u"launch "_s + name);
        return m_owner.launchAnswer;
    }

private:
    FakePlatform& m_owner;
};

class FakePlatform::Logins : public LoginItems {
public:
    explicit Logins(FakePlatform& owner) : m_owner(owner) { }
    bool setEnabled(const QString& bundleIdentifier, bool enabled) override
    {
        m_owner.note(u"login "_s + bundleIdentifier + (enabled ? u" on"_s : u" off"_s));
        return true;
    }

private:
    FakePlatform& m_owner;
};

class FakePlatform::Runner : public CommandRunner {
public:
    explicit Runner(FakePlatform& owner) : m_owner(owner) { }
    int run(const QString& program, const QStringList& arguments) override
    {
        m_owner.note(u"run "_s + program + u' ' + arguments.join(u' '));
        return m_owner.commandStatus;
    }

private:
    FakePlatform& m_owner;
};

class FakePlatform::Version : public OsVersion {
public:
    explicit Version(FakePlatform& owner) : m_owner(owner) { }
    bool isAtLeast(int major, int minor, int) const override
    {
        return m_owner.modernSystem || major < 10 || (major == 10 && minor < 15);
    }

private:
    FakePlatform& m_owner;
};

FakePlatform::FakePlatform() = default;

FakePlatform::~FakePlatform()
{
    if (m_deliverer.joinable())
        m_deliverer.join();
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
    Workspace::OpenHandler handler;
    {
        const QMutexLocker locker(&m_mutex);
        handler = std::move(m_pendingOpen);
        m_pendingOpen = nullptr;
    }
    if (m_deliverer.joinable())
        m_deliverer.join();
    const std::optional<ZLError> error = openError;
    m_deliverer = std::thread([handler = std::move(handler), error] {
        handler(error ? std::nullopt : std::optional<qint64>(4242), error);
    });
    m_deliverer.join();
}

void FakePlatform::install()
{
    PlatformServices services;
    services.defaults = std::make_shared<Defaults>(*this);
    services.workspace = std::make_shared<FakeWorkspace>(*this);
    services.loginItems = std::make_shared<Logins>(*this);
    services.commandRunner = std::make_shared<Runner>(*this);
    services.osVersion = std::make_shared<Version>(*this);
    Platform::replace(services);
}
