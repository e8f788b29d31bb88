#pragma once

#include "TempHome.h"

#include <QProcess>
#include <QTest>

#include <memory>

// One run of the launcher bundle, with its output collected as it comes; killed when dropped.
struct Launch : QProcess {
    QString seen;
    ~Launch() override { kill(), waitForFinished(); }
    QString output() { return seen += QString::fromUtf8(readAll()); }
    bool says(const QString& text) { return output().contains(text); }
    // False when the process ended or time ran out before the text came.
    bool waitFor(const QString& text, int ms = 15000)
    {
        return QTest::qWaitFor([&] { return says(text) || state() == NotRunning; }, ms) && says(text);
    }
    // The exit status; 255 for an abnormal end (a fatal error aborts), -1 when still running after 15 s.
    int finish() { return state() && !waitForFinished(15000) ? -1 : exitStatus() ? 255 : exitCode(); }
};

// The built launcher in bundle/ of a temporary home, with a stand-in pluginkit and an installable service.
class LauncherBundle {
public:
    // Nothing when the bundle could not be made.
    static std::unique_ptr<LauncherBundle> make();

    TempHome& home() { return m_home; }
    QString path(const QString& relative) const { return m_home.path() + u'/' + relative; }
    QString service() const { return path(QStringLiteral("bundle/bin/zq-test-service")); }
    QProcessEnvironment env;

    // Through a shell that runs PREPARE first and leaves descriptor 7 open, as a careless parent does (the
    // stand-in pluginkit notes it if it reaches the election); a WRAPPER (a tracer) starts the launcher.
    std::unique_ptr<Launch> launch(const QStringList& arguments = {}, bool display = true,
                                   const QString& prepare = {}, const QStringList& wrapper = {}) const;
    // The bundle's Info.plist with the given entries, or with a feed file of version "1.0" or "2.0", or
    // "none" for a feed file that is missing, or "no windows" for version 2.0 and no windows module.
    bool writeInfo(QByteArray feed) const;
    // Makes the stand-in service an installed application.
    void installService() const
    {
        m_home.installApplication(QStringLiteral("com.zelna.Quorin.Service"), service());
    }

    // Starts the launchers that follow on a virtual X server of their own.
    bool startDisplay();

private:
    LauncherBundle() = default;
    TempHome m_home;
    Launch m_display;
};
