#include "SUStandardVersionComparator.h"

#include <QStringList>

#include <limits>

namespace {

enum class CharacterType { Number, String, Separator };

CharacterType typeOf(QChar c)
{
    if (c.isDigit())
        return CharacterType::Number;
    if (c.isSpace() || c.isPunct())
        return CharacterType::Separator;
    return CharacterType::String;
}

CharacterType typeOf(const QString& part)
{
    return typeOf(part.front());
}

// Runs of digits, runs of other characters, and every separator on its own.
QStringList split(const QString& version)
{
    QStringList parts;
    if (version.isEmpty())
        return parts;
    QString current(version.front());
    CharacterType previous = typeOf(version.front());
    for (qsizetype i = 1; i < version.size(); ++i) {
        const CharacterType type = typeOf(version[i]);
        if (type != previous || previous == CharacterType::Separator) {
            parts << current;
            current = version[i];
        } else {
            current += version[i];
        }
        previous = type;
    }
    parts << current;
    return parts;
}

qsizetype leadingNumbersAndPeriods(const QStringList& parts)
{
    qsizetype count = 0;
    for (const QString& part : parts) {
        if (typeOf(part) == CharacterType::Number || part == QStringLiteral("."))
            ++count;
        else
            break;
    }
    return count;
}

// Pads the shorter leading run with ".0" so that "1.0" and "1.0.0" line up.
void balance(QStringList& a, const QStringList& b)
{
    const qsizetype leading = leadingNumbersAndPeriods(a);
    const qsizetype target = leadingNumbersAndPeriods(b);
    if (leading >= target)
        return;
    // Built anew: inserting one part at a time in the middle costs the square of the length.
    QStringList padded = a.first(leading);
    padded.reserve(a.size() + target - leading);
    for (qsizetype count = leading; count < target; ++count) {
        const bool endsInPeriod = count > 0 && padded[count - 1] == QStringLiteral(".");
        padded << (endsInPeriod ? QStringLiteral("0") : QStringLiteral("."));
    }
    padded += a.mid(leading);
    a = std::move(padded);
}

qint64 numberValue(const QString& digits)
{
    bool ok = false;
    const qint64 value = digits.toLongLong(&ok);
    return ok ? value : std::numeric_limits<qint64>::max(); // saturates like the original
}

int sign(qint64 value)
{
    return value < 0 ? -1 : (value > 0 ? 1 : 0);
}

} // namespace

int SUStandardVersionComparator::compareVersions(const QString& a, const QString& b)
{
    QStringList partsA = split(a.section(u'-', 0, 0));
    QStringList partsB = split(b.section(u'-', 0, 0));
    balance(partsA, partsB);
    balance(partsB, partsA);

    const qsizetype shared = std::min(partsA.size(), partsB.size());
    for (qsizetype i = 0; i < shared; ++i) {
        const CharacterType typeA = typeOf(partsA[i]);
        const CharacterType typeB = typeOf(partsB[i]);
        if (typeA == typeB) {
            if (typeA == CharacterType::Number) {
                const qint64 valueA = numberValue(partsA[i]);
                const qint64 valueB = numberValue(partsB[i]);
                if (valueA != valueB)
                    return valueA > valueB ? 1 : -1;
            } else if (typeA == CharacterType::String) {
                if (const int result = partsA[i].compare(partsB[i]))
                    return sign(result);
            }
        } else if (typeA != CharacterType::String && typeB == CharacterType::String) {
            return 1; // a number or separator beats a pre-release word
        } else if (typeA == CharacterType::String && typeB != CharacterType::String) {
            return -1;
        } else {
            return typeA == CharacterType::Number ? 1 : -1; // a number beats a stray separator
        }
    }
    if (partsA.size() == partsB.size())
        return 0;
    // The longer one wins unless what it adds starts with a word ("1.0" > "1.0b").
    const bool aLonger = partsA.size() > partsB.size();
    const QString& extra = aLonger ? partsA[shared] : partsB[shared];
    const int longerWins = aLonger ? 1 : -1;
    return typeOf(extra) == CharacterType::String ? -longerWins : longerWins;
}
