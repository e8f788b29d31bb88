#include "SystemLog.h"

#include "LogSink.h"
#include "Platform.h"
#include "PrintfFormat.h"

void SystemLog::log(const QString& format)
{
    Platform::logSink().write(PrintfFormat::render(format.toUtf8()));
}

void SystemLog::logText(const QString& text)
{
    Platform::logSink().write(PrintfFormat::fitLine(text.toUtf8()));
}
