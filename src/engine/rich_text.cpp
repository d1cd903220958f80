#include "engine/rich_text.h"

#include <QFont>
#include <QFontDatabase>
#include <QGuiApplication>

namespace tavo {

namespace {

constexpr double fallbackPointSize = 13;

QString withNewlines(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral("\n"));
    text.replace(u'\r', u'\n');
    return text;
}

QString pointText(double points)
{
    return QString::number(points, 'g', 6);
}

void appendRtfText(QByteArray& out, const QString& text)
{
    for (const QChar c : text) {
        const char16_t unit = c.unicode();
        switch (unit) {
        case u'\\':
            out += "\\\\";
            break;
        case u'{':
            out += "\\{";
            break;
        case u'}':
            out += "\\}";
            break;
        case u'\n':
            out += "\\par ";
            break;
        case u'\t':
            out += "\\tab ";
            break;
        default:
            if (unit < 0x20) {
                break; // other control characters have no meaning in a paragraph
            }
            if (unit < 0x80) {
                out += char(unit);
                break;
            }
            // RTF reads the number as a signed 16-bit value; each half of a surrogate pair goes
            // on its own, as word processors write them.
            out += "\\u" + QByteArray::number(unit > 0x7fff ? int(unit) - 0x10000 : int(unit)) + '?';
        }
    }
}

} // namespace

QString systemFontFamily()
{
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        const QString family = QFontDatabase::systemFont(QFontDatabase::GeneralFont).family();
        if (!family.isEmpty()) {
            return family;
        }
    }
    return QStringLiteral("Sans");
}

double systemFontPointSize()
{
    if (qobject_cast<QGuiApplication*>(QCoreApplication::instance())) {
        // A font set in pixels reports -1 points.
        const double points = QFontDatabase::systemFont(QFontDatabase::GeneralFont).pointSizeF();
        if (points > 0) {
            return points;
        }
    }
    return fallbackPointSize;
}

QString htmlEscaped(const QString& text)
{
    QString escaped = text;
    escaped.replace(u'&', QStringLiteral("&amp;"));
    escaped.replace(u'<', QStringLiteral("&lt;"));
    escaped.replace(u'>', QStringLiteral("&gt;"));
    escaped.replace(u'"', QStringLiteral("&quot;"));
    escaped.replace(u'\'', QStringLiteral("&#39;"));
    return escaped;
}

QString htmlTable(const QStringList& rows)
{
    QString html = QStringLiteral("<table>");
    for (const QString& row : rows) {
        html += QStringLiteral("<tr><td>") + htmlEscaped(row) + QStringLiteral("</td></tr>");
    }
    html += QStringLiteral("</table>");
    return html;
}

QString styledHtml(const QString& text, const ShortcutTextStyle& style, double pointSize)
{
    QString css = QStringLiteral("font-size:") + pointText(pointSize) + QStringLiteral("pt");
    if (style.bold) {
        css += QStringLiteral(";font-weight:bold");
    }
    if (style.italic) {
        css += QStringLiteral(";font-style:italic");
    }
    if (style.underline) {
        css += QStringLiteral(";text-decoration:underline");
    }
    QString body = htmlEscaped(withNewlines(text));
    body.replace(u'\n', QStringLiteral("<br>"));
    return QStringLiteral("<span style=\"") + css + QStringLiteral("\">") + body + QStringLiteral("</span>");
}

QByteArray styledRtf(const QString& text, const ShortcutTextStyle& style, const QString& family, double pointSize)
{
    QString fontName = family;
    fontName.remove(u';'); // ends the name in the font table
    QByteArray rtf = "{\\rtf1\\ansi\\deff0\\uc1{\\fonttbl{\\f0\\fswiss ";
    appendRtfText(rtf, fontName);
    rtf += ";}}\n\\f0\\fs" + QByteArray::number(qRound(pointSize * 2));
    if (style.bold) {
        rtf += "\\b";
    }
    if (style.italic) {
        rtf += "\\i";
    }
    if (style.underline) {
        rtf += "\\ul";
    }
    rtf += ' ';
    appendRtfText(rtf, withNewlines(text));
    rtf += "}";
    return rtf;
}

} // namespace tavo
