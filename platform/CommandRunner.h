#pragma once

#include <QString>
#include <QStringList>

// Runs a command with the caller's standard streams and waits for it.
class CommandRunner {
public:
    virtual ~CommandRunner() = default;
    // The exit status; the signal number when the command was killed; -1 when it could not start.
    virtual int run(const QString& program, const QStringList& arguments) = 0;
    // Starts the command a later run is expected to ask for, so that it runs while the caller
    // does other work; that run then waits for it instead of starting it again.
    virtual void startEarly(const QString& /*program*/, const QStringList& /*arguments*/) { }
};
