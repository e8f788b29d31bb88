#pragma once

#include "CommandRunner.h"

#include <mutex>
#include <optional>

#include <sys/types.h>

// Runs commands through GLib's spawn, standard streams inherited, other descriptors closed.
// Needs no application object, so a command can be started before there is one.
class ProcessCommandRunner : public CommandRunner {
public:
    int run(const QString& program, const QStringList& arguments) override;
    void startEarly(const QString& program, const QStringList& arguments) override;

private:
    struct Started {
        QString program;
        QStringList arguments;
        pid_t pid;
    };
    enum class Descriptors { Close, LeaveOpen };
    static std::optional<pid_t> start(const QString& program, const QStringList& arguments,
                                      Descriptors descriptors = Descriptors::Close);
    static int wait(pid_t pid);

    std::mutex m_mutex;
    std::optional<Started> m_early;
};
