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

// The built launcher in a bundle of its own (bundle/ in a temporary home), with a stand-in pluginkit
// and a stand-in service that has a desktop entry.
class LauncherBundle {
public:
    // Nothing when the bundle could not be made.
    static std::unique_ptr<LauncherBundle> make();

    TempHome& home() { return m_home; }
    QString path(const QString& relative) const { return m_home.path() + u'/' + relative; }
    QString service() const { return path(QStringLiteral("bundle/bin/zq-test-service")); }
    QProcessEnvironment env;

    // Started through a shell that runs PREPARE first, with descriptor 7 open and not close-on-exec, as a
    // careless parent leaves one: the stand-in pluginkit records it if it reaches the election. A wrapper
    // (a tracer) starts the launcher in its place.
    std::unique_ptr<Launch> launch(const QStringList& arguments = {}, bool display = true,
                                   const QString& prepare = {}, const QStringList& wrapper = {}) const;
    // The bundle's Info.plist with the given entries, or with a feed file of version "1.0" or "2.0", or
    // "none" for a feed file that is missing, or "no module" / "other module" for version 1.0 and no
    // network module / another plug-in in its place, or "no windows" for version 2.0 and no windows module.
    bool writeInfo(QByteArray feed) const;
    // Makes the stand-in service an installed application.
    void installService() const
    {
        m_home.installApplication(QStringLiteral("com.zelna.Quorin.Service"), service());
    }

    // Starts the launchers that follow on a virtual X server of their own.
    bool startDisplay();
    // Gives the window of the launcher with this pid the keyboard (there is no window manager to give it)
    // once it is shown, and types these keys into it; never into a window of an earlier run, not yet gone.
    bool typeIntoWindow(qint64 pid, const QStringList& keys) const;

private:
    LauncherBundle() = default;
    TempHome m_home;
    Launch m_display;
};
