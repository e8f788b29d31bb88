#include "PrintfFormat.h"

#include <algorithm>
#include <cstdio>
#include <string>

// The directive texts below are built from the parsed format on purpose; every
// argument passed with them is one this file supplies.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

namespace {

// One parsed directive: "%" flags width .precision length conversion.
struct Directive {
    std::string flags;
    int width = -1; // -1: none
    bool widthFromArg = false;
    int precision = -1; // -1: none
    bool precisionFromArg = false;
    char conversion = 0;
    qsizetype end = 0; // index just past the directive
};

class Parser {
public:
    explicit Parser(const QByteArray& text) : m_text(text) { }

    // Parses the directive whose '%' is at pos; conversion stays 0 when the text ends first.
    Directive parse(qsizetype pos) const
    {
        Directive d;
        qsizetype i = pos + 1;
        while (i < m_text.size() && std::string_view("-+ #0'").find(m_text[i]) != std::string_view::npos)
            d.flags += m_text[i++];
        if (i < m_text.size() && m_text[i] == '*') {
            d.widthFromArg = true;
            ++i;
        } else {
            d.width = number(i);
        }
        if (i < m_text.size() && m_text[i] == '.') {
            ++i;
            if (i < m_text.size() && m_text[i] == '*') {
                d.precisionFromArg = true;
                ++i;
            } else {
                d.precision = std::max(0, number(i));
            }
        }
        while (i < m_text.size() && std::string_view("hlLqjzt").find(m_text[i]) != std::string_view::npos)
            ++i;
        if (i < m_text.size())
            d.conversion = m_text[i++];
        d.end = i;
        return d;
    }

private:
    int number(qsizetype& i) const
    {
        if (i >= m_text.size() || m_text[i] < '0' || m_text[i] > '9')
            return -1;
        long long value = 0;
        while (i < m_text.size() && m_text[i] >= '0' && m_text[i] <= '9') {
            value = std::min<long long>(value * 10 + (m_text[i] - '0'), PrintfFormat::maxFieldWidth);
            ++i;
        }
        return static_cast<int>(value);
    }

    const QByteArray& m_text;
};

class Renderer {
public:
    explicit Renderer(const QList<PrintfFormat::Argument>& args) : m_args(args) { }

    void directive(const Directive& d, QByteArray& out)
    {
        Directive pattern = d;
        if (pattern.widthFromArg) {
            nextArgument(); // a text argument has no numeric value: width 0
            pattern.width = -1;
        }
        if (pattern.precisionFromArg) {
            nextArgument();
            pattern.precision = -1;
        }
        switch (pattern.conversion) {
        case '%':
            out += '%';
            return;
        case '@':
        case 's':
        case 'S': {
            const PrintfFormat::Argument arg = nextArgument();
            const QByteArray text = arg ? *arg : QByteArrayLiteral("(null)");
            // Embedded NUL bytes would end a C string early; the text is passed whole.
            appendFormatted(out, pattern, 's', text);
            return;
        }
        case 'n': // consumes its argument, writes nowhere
        case 'c': // a zero character prints nothing
        case 'C':
            nextArgument();
            return;
        case 'd':
        case 'i':
        case 'o':
        case 'u':
        case 'x':
        case 'X':
        case 'p':
        case 'D':
        case 'O':
        case 'U':
            nextArgument();
            appendNumber(out, pattern, false);
            return;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            nextArgument();
            appendNumber(out, pattern, true);
            return;
        default:
            return; // unknown directive: printed literally by the caller
        }
    }

    static bool known(char conversion)
    {
        return conversion != 0
               && std::string_view("%@sSncCdiouxXpDOUfFeEgGaA").find(conversion) != std::string_view::npos;
    }

private:
    PrintfFormat::Argument nextArgument()
    {
        if (m_next < m_args.size())
            return m_args[m_next++];
        ++m_next;
        return std::nullopt;
    }

    static std::string specText(const Directive& d, char conversion)
    {
        std::string pattern(1, '%');
        pattern.append(d.flags);
        if (d.width >= 0)
            pattern.append(std::to_string(d.width));
        if (d.precision >= 0) {
            pattern.push_back('.');
            pattern.append(std::to_string(d.precision));
        }
        pattern.push_back(conversion);
        return pattern;
    }

    static void appendFormatted(QByteArray& out, const Directive& d, char conversion, const QByteArray& text)
    {
        const std::string pattern = specText(d, conversion);
        const std::string value = text.toStdString();
        std::string buffer(value.size() + 2 * PrintfFormat::maxFieldWidth + 8, '\0');
        const int n = std::snprintf(buffer.data(), buffer.size(), pattern.c_str(), value.c_str());
        if (n > 0)
            out.append(buffer.data(), std::min<qsizetype>(n, qsizetype(buffer.size()) - 1));
    }

    static void appendNumber(QByteArray& out, const Directive& d, bool floating)
    {
        char conversion = d.conversion;
        if (conversion == 'D')
            conversion = 'd';
        else if (conversion == 'O')
            conversion = 'o';
        else if (conversion == 'U')
            conversion = 'u';
        const std::string pattern = specText(d, conversion);
        std::string buffer(3 * PrintfFormat::maxFieldWidth + 64, '\0');
        int n = 0;
        if (floating)
            n = std::snprintf(buffer.data(), buffer.size(), pattern.c_str(), 0.0);
        else if (conversion == 'p')
            n = std::snprintf(buffer.data(), buffer.size(), pattern.c_str(), static_cast<void*>(nullptr));
        else
            n = std::snprintf(buffer.data(), buffer.size(), pattern.c_str(), 0);
        if (n > 0)
            out.append(buffer.data(), std::min<qsizetype>(n, qsizetype(buffer.size()) - 1));
    }

    const QList<PrintfFormat::Argument>& m_args;
    qsizetype m_next = 0;
};

} // namespace

QByteArray PrintfFormat::render(const QByteArray& format, const QList<Argument>& args)
{
    QByteArray out;
    out.reserve(format.size());
    const Parser parser(format);
    Renderer renderer(args);
    qsizetype i = 0;
    while (i < format.size() && out.size() < maxLineBytes) { // past it, the rest would be cut anyway
        const qsizetype percent = format.indexOf('%', i);
        if (percent < 0) {
            out.append(format.constData() + i, format.size() - i);
            break;
        }
        out.append(format.constData() + i, percent - i);
        const Directive d = parser.parse(percent);
        if (Renderer::known(d.conversion))
            renderer.directive(d, out);
        else
            out.append(format.constData() + percent, d.end - percent); // kept as written
        i = d.end;
    }
    return fitLine(std::move(out));
}

QByteArray PrintfFormat::fitLine(QByteArray line)
{
    if (line.size() <= maxLineBytes)
        return line;
    qsizetype end = maxLineBytes;
    while (end > 0 && (uchar(line[end]) & 0xC0) == 0x80) // not inside a UTF-8 sequence
        --end;
    line.truncate(end);
    return line;
}
