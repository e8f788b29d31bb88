#include "Translations.h"

#include "Bundle.h"

using namespace Qt::Literals::StringLiterals;

std::unique_ptr<QTranslator> Translations::load(const QLocale& locale, const Bundle& bundle)
{
    auto translator = std::make_unique<QTranslator>();
    if (!translator->load(locale, u"zelna-quorin"_s, u"_"_s, bundle.pathForResource(u"translations"_s)))
        return nullptr;
    return translator;
}
