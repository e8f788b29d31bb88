#include "DesktopEntry.h"

#include "GLibPtr.h"
#include "RegularFile.h"

#include <QFile>

using namespace Qt::Literals::StringLiterals;

std::variant<DesktopEntry, ZLError> DesktopEntry::read(const QString& path)
{
    auto bytes = RegularFile::read(path, maxSize);
    if (auto* failure = std::get_if<ZLError>(&bytes))
        return std::move(*failure);
    const QByteArray& data = std::get<QByteArray>(bytes);
    KeyFilePtr keyFile(g_key_file_new(), &g_key_file_unref);
    GError* rawError = nullptr;
    if (!g_key_file_load_from_data(keyFile.get(), data.constData(), gsize(data.size()),
                                   GKeyFileFlags(G_KEY_FILE_KEEP_COMMENTS | G_KEY_FILE_KEEP_TRANSLATIONS),
                                   &rawError)) {
        const GErrorPtr error(rawError);
        return ZLError(u"NSCocoaErrorDomain"_s, 259,
                       QString::fromUtf8(error ? error->message : "not a key file"));
    }
    return DesktopEntry(path, std::move(keyFile));
}

QString DesktopEntry::string(const char* key) const
{
    const GCharPtr value(g_key_file_get_string(m_keyFile.get(), group, key, nullptr));
    return value ? QString::fromUtf8(value.get()) : QString();
}

bool DesktopEntry::runnable() const
{
    const QString tryExec = string("TryExec");
    return string("Type") == u"Application"_s
           && !g_key_file_get_boolean(m_keyFile.get(), group, "Hidden", nullptr)
           && (tryExec.isEmpty() || findProgram(tryExec)) && !string("Exec").trimmed().isEmpty();
}

std::optional<QStringList> DesktopEntry::arguments() const
{
    GKeyFile* keys = m_keyFile.get();
    const GCharPtr exec(g_key_file_get_string(keys, group, "Exec", nullptr));
    if (!exec)
        return std::nullopt;
    const GCharPtr name(g_key_file_get_locale_string(keys, group, "Name", nullptr, nullptr));
    const GCharPtr icon(g_key_file_get_locale_string(keys, group, "Icon", nullptr, nullptr));
    QByteArray iconName = icon.get();
    // GIO drops an image file's extension from an icon name that is not a path.
    if (icon && !g_path_is_absolute(icon.get())
        && (iconName.endsWith(".png") || iconName.endsWith(".xpm") || iconName.endsWith(".svg")))
        iconName.chop(4);
    const auto quoted
        = [](const QByteArray& text) { return QByteArray(GCharPtr(g_shell_quote(text)).get()); };
    QByteArray expanded;
    for (const char* p = exec.get(); *p; ++p) {
        if (p[0] != '%' || p[1] == '\0') {
            expanded += *p;
            continue;
        }
        switch (*++p) {
        case 'i':
            if (icon)
                expanded += "--icon " + quoted(iconName);
            break;
        case 'c':
            if (name)
                expanded += quoted(name.get());
            break;
        case 'k':
            expanded += quoted(QFile::encodeName(m_path));
            break;
        case '%':
            expanded += '%';
            break;
        default: // files (there are none), and deprecated or unknown codes
            break;
        }
    }
    gchar** argv = nullptr;
    if (!g_shell_parse_argv(expanded.constData(), nullptr, &argv, nullptr))
        return std::nullopt;
    const std::unique_ptr<gchar*, decltype(&g_strfreev)> owned(argv, &g_strfreev);
    QStringList arguments;
    for (gchar** argument = argv; *argument; ++argument)
        arguments << QString::fromUtf8(*argument);
    return arguments;
}

QString DesktopEntry::execLine(const QStringList& arguments)
{
    static const QString reserved = u" \t\n\"'\\><~|&;$*?#()`"_s;
    QStringList words;
    for (QString word : arguments) {
        word.replace(u'%', u"%%"_s);
        if (!word.isEmpty()
            && std::none_of(word.cbegin(), word.cend(), [](QChar c) { return reserved.contains(c); })) {
            words << word;
            continue;
        }
        QString quoted = u"\""_s;
        for (const QChar c : std::as_const(word))
            quoted += (c == u'"' || c == u'`' || c == u'$' || c == u'\\' ? u"\\"_s : QString()) + c;
        words << quoted + u'"';
    }
    return words.join(u' ');
}

std::optional<QString> DesktopEntry::findProgram(const QString& program)
{
    if (program.isEmpty())
        return std::nullopt;
    const GCharPtr found(g_find_program_in_path(QFile::encodeName(program).constData()));
    return found ? std::optional(QFile::decodeName(found.get())) : std::nullopt;
}
