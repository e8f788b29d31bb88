#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

#include <sys/types.h>

// The process table, as /proc shows it.
class ProcFs {
public:
    struct Process {
        qint64 pid = 0;
        uid_t uid = 0;      // owner of /proc/PID
        QString executable; // empty when /proc/PID/exe cannot be read
    };

    virtual ~ProcFs() = default;

    // Every process, in ascending pid order.
    virtual QList<Process> processes() const;
    // The current state of one process, if it still exists.
    virtual std::optional<Process> process(qint64 pid) const;
    // Its command line (at most 256 KiB of it); nothing when it cannot be read or is empty.
    virtual std::optional<QStringList> arguments(qint64 pid) const;
    // SIGKILL to the process, through a pidfd so a recycled pid is never hit.
    virtual bool kill(qint64 pid, const QString& expectedExecutable, uid_t expectedUid) const;
};
