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

StyledText styledRuns(const QString& text, const ShortcutTextStyle& style, const QString& family, double pointSize)
{
    RunStyle runStyle;
    runStyle.bold = style.bold;
    runStyle.italic = style.italic;
    runStyle.underline = style.underline;
    runStyle.pointSize = pointSize;
    StyledText styled;
    styled.defaultFamily = family;
    appendRun(styled.runs, withNewlines(text), runStyle);
    return styled;
}

} // namespace tavo
