#include "HeadlessUserDriver.h"

#include "SUAppcastItem.h"
#include "SystemLog.h"
#include "UpdateDelegate.h"

using namespace Qt::Literals::StringLiterals;

void HeadlessUserDriver::showUpdateFound(const SUAppcastItem& item, const QString& installedVersion,
                                         std::function<void(Choice)>)
{
    SystemLog::logText(u"Updater: version "_s + item.displayVersionString + u" ("_s + item.versionString
                       + u") is available; "_s + installedVersion + u" is installed"_s);
    UpdateDelegate::endProcess(updateFoundStatus);
}
