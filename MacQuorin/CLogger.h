#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <optional>
#include <source_location>

class LogTimeFormatter;

// The launcher's logger: one tagged line per call, straight to the system log.
// Call sites leave line, file and strFunc to their defaults, which name the caller.
class CLog {
public:
    enum class StringTag { launcher, service, finderExt };
    static QString rawValue(StringTag tag);

    // Declared settings; nothing reads them.
    static inline bool logPrintsToFile = false;
    static inline QString logString;

    // ZELNA_LOG[HH:mm:ss.SSS]: "item arg". <Tag>, ShortName (line)
    static void pExp(const QVariant& item, const std::optional<QVariant>& arg = std::nullopt,
                     StringTag logTags = StringTag::service, bool userLog = false,
                     int line = static_cast<int>(std::source_location::current().line()),
                     const char* file = std::source_location::current().file_name(),
                     const char* strFunc = std::source_location::current().function_name());

    // Text items (string builders convert to this one).
    static void pExp(const QString& item, const std::optional<QVariant>& arg = std::nullopt,
                     StringTag logTags = StringTag::service, bool userLog = false,
                     int line = static_cast<int>(std::source_location::current().line()),
                     const char* file = std::source_location::current().file_name(),
                     const char* strFunc = std::source_location::current().function_name());

    // Formats with "%@" directives (an absent argument prints "nil"), then logs as pExp.
    static void f(const QString& format, const QList<std::optional<QString>>& args,
                  StringTag logTags = StringTag::service, bool userLog = false,
                  int line = static_cast<int>(std::source_location::current().line()),
                  const char* file = std::source_location::current().file_name(),
                  const char* strFunc = std::source_location::current().function_name());

private:
    static void write(const QString& item, const std::optional<QVariant>& arg, StringTag logTags,
                      bool userLog, int line, const char* file);
    static const LogTimeFormatter& dateFormatter();
    static QString shortFileName(const QString& path);
};
