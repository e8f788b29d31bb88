#include "ProcessCommandRunner.h"

#include "SystemLog.h"

#include <QProcess>

using namespace Qt::Literals::StringLiterals;

int ProcessCommandRunner::run(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.setProgram(program);
    process.setArguments(arguments);
    process.setProcessChannelMode(QProcess::ForwardedChannels);
    process.setInputChannelMode(QProcess::ForwardedInputChannel);
    process.start();
    if (!process.waitForStarted(-1)) {
        SystemLog::logText(u"Could not run "_s + program + u": "_s + process.errorString());
        return -1;
    }
    process.waitForFinished(-1);
    // After a crash QProcess reports the terminating signal's number as the code.
    return process.exitCode();
}
