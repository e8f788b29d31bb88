#pragma once

#include <QLocale>
#include <QTranslator>

#include <memory>

class Bundle;

// The bundle's Qt Linguist translations (share/zelna-quorin/translations/zelna-quorin_LANG.qm).
class Translations {
public:
    // The translator for the first of the locale's languages that has one; nothing when none has
    // (the C and English locales): texts are then shown exactly as written.
    static std::unique_ptr<QTranslator> load(const QLocale& locale, const Bundle& bundle);
};
