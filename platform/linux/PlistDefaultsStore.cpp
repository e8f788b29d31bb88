#include "PlistDefaultsStore.h"

#include "PlistDefaultsSuite.h"
#include "XdgDirs.h"

using namespace Qt::Literals::StringLiterals;

bool PlistDefaultsStore::isUsableSuiteName(const QString& suiteName)
{
    // Leaves room for ".plist" and the lock and aside suffixes within NAME_MAX.
    constexpr qsizetype maxNameBytes = 200;
    return !suiteName.isEmpty() && suiteName != u"."_s && suiteName != u".."_s && !suiteName.contains(u'/')
           && !suiteName.contains(QChar(0)) && suiteName.toUtf8().size() <= maxNameBytes;
}

std::unique_ptr<DefaultsSuite> PlistDefaultsStore::open(const QString& suiteName)
{
    const auto configHome = XdgDirs::configHome();
    if (!configHome || !isUsableSuiteName(suiteName))
        return nullptr;
    return std::make_unique<PlistDefaultsSuite>(*configHome + u'/' + suiteName + u".plist"_s);
}
