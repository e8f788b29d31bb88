#pragma once

#include <QList>
#include <QString>
#include <QVariant>

#include <optional>
#include <source_location>

#include "OutputStream.h"

#include <memory>

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

// Owns a stream to a log file and reports its errors through CLog. Nothing in
// the launcher makes one; the logger does not write to files.
class FileStreamer : public StreamDelegate {
public:
    explicit FileStreamer(const QString& filePath);
    ~FileStreamer() override;

    OutputStream* outputStream() const { return m_outputStream.get(); }
    void setOutputStream(std::unique_ptr<OutputStream> stream) { m_outputStream = std::move(stream); }

    // Replaces the stream with one to the path, and starts it.
    void startNewStreamWith(const QString& filePath);
    void open();
    void close();
    // Appends the text as UTF-8; answers whether all of it was written.
    bool append(const QString& text);

    void stream(OutputStream* stream, int event) override;

private:
    // Schedules the stream on this thread's event loop and opens it.
    void startNewStream();

    std::unique_ptr<OutputStream> m_outputStream;
};
