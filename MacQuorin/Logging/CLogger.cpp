#include "CLogger.h"

#include "LogTimeFormatter.h"
#include "PrintfFormat.h"
#include "SystemLog.h"

using namespace Qt::Literals::StringLiterals;

QString CLog::rawValue(StringTag tag)
{
    switch (tag) {
    case StringTag::launcher:
        return u"Launcher"_s;
    case StringTag::service:
        return u"Service"_s;
    case StringTag::finderExt:
        return u"FinderExt"_s;
    }
    return {};
}

const LogTimeFormatter& CLog::dateFormatter()
{
    // Built once, on first use, by whichever thread logs first; read-only after that.
    static const LogTimeFormatter formatter;
    return formatter;
}

QString CLog::shortFileName(const QString& path)
{
    const QStringList pieces = path.split(u'/', Qt::SkipEmptyParts);
    QString name = pieces.isEmpty() ? u"-"_s : pieces.last();
    // A fixed cut of the six characters of the sources' extension, whatever they are.
    if (name.size() >= 7)
        name.chop(6);
    return name;
}

void CLog::pExp(const QVariant& item, const std::optional<QVariant>& arg, StringTag logTags, bool userLog,
                int line, const char* file, const char* strFunc)
{
    Q_UNUSED(strFunc) // accepted for the call sites' sake, never written
    write(item.toString(), arg, logTags, userLog, line, file);
}

void CLog::pExp(const QString& item, const std::optional<QVariant>& arg, StringTag logTags, bool userLog,
                int line, const char* file, const char* strFunc)
{
    Q_UNUSED(strFunc)
    write(item, arg, logTags, userLog, line, file);
}

void CLog::write(const QString& item, const std::optional<QVariant>& arg, StringTag logTags, bool userLog,
                 int line, const char* file)
{
    const QString stamp = u'[' + dateFormatter().string(std::chrono::system_clock::now()) + u']';
    QString text = u"ZELNA_LOG"_s;
    if (userLog)
        text += u" ZL_DOWNLOAD_LOG"_s;
    text += stamp + u": \""_s + item;
    if (arg)
        text += u' ' + arg->toString();
    text += u"\". <"_s + rawValue(logTags) + u">, "_s + shortFileName(QString::fromUtf8(file)) + u" ("_s
            + QString::number(line) + u')';
    // The line is a format on purpose, as the system log call takes it.
    SystemLog::log(text);
}

void CLog::f(const QString& format, const QList<std::optional<QString>>& args, StringTag logTags,
             bool userLog, int line, const char* file, const char* strFunc)
{
    QList<PrintfFormat::Argument> texts;
    texts.reserve(args.size());
    for (const auto& arg : args)
        texts.append(arg ? arg->toUtf8() : QByteArrayLiteral("nil"));
    const QString item = QString::fromUtf8(PrintfFormat::render(format.toUtf8(), texts));
    pExp(item, std::nullopt, logTags, userLog, line, file, strFunc);
}

FileStreamer::FileStreamer(const QString& filePath)
    : m_outputStream(std::make_unique<OutputStream>(filePath, true))
{ }

FileStreamer::~FileStreamer() = default;

void FileStreamer::startNewStreamWith(const QString& filePath)
{
    if (m_outputStream)
        m_outputStream->close();
    m_outputStream = std::make_unique<OutputStream>(filePath, true);
    startNewStream();
}

void FileStreamer::startNewStream()
{
    if (!m_outputStream)
        return;
    m_outputStream->setDelegate(this);
    if (!m_outputStream)
        return;
    m_outputStream->scheduleInCurrentRunLoop();
    if (!m_outputStream)
        return;
    m_outputStream->open();
}

void FileStreamer::open()
{
    if (m_outputStream)
        m_outputStream->open();
}

void FileStreamer::close()
{
    if (m_outputStream)
        m_outputStream->close();
}

bool FileStreamer::append(const QString& text)
{
    const QByteArray bytes = text.toUtf8();
    return m_outputStream && m_outputStream->write(bytes) == bytes.size();
}

void FileStreamer::stream(OutputStream* stream, int event)
{
    // Equality, not a bit test: combined events are not errors.
    if (event != OutputStream::ErrorOccurred)
        return;
    const std::optional<ZLError> error = stream ? stream->streamError() : std::nullopt;
    CLog::f(u"StreamError: %@"_s, {error ? std::optional(error->localizedDescription()) : std::nullopt},
            CLog::StringTag::launcher, false);
}
