#include "language/text_utils.h"

#include <QTextBoundaryFinder>

#include <limits>

namespace tavo {

QString leadingCharacters(const QString& text, qsizetype count)
{
    if (count <= 0) {
        return {};
    }
    if (text.size() <= count) {
        return text; // a cluster holds at least one unit, so nothing needs cutting
    }
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype taken = 0;
    while (taken < count && finder.toNextBoundary() != -1) {
        ++taken;
    }
    return taken < count ? text : text.left(finder.position());
}

qsizetype characterCount(const QString& text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1) {
        ++count;
    }
    return count;
}

QString withoutLastCharacter(const QString& text)
{
    if (text.isEmpty()) {
        return text;
    }
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    finder.toEnd();
    const qsizetype start = finder.toPreviousBoundary();
    return text.left(qMax<qsizetype>(start, 0));
}

QRegularExpression unicodeRegex(const QString& pattern, QRegularExpression::PatternOptions options)
{
    return QRegularExpression(pattern, options | QRegularExpression::UseUnicodePropertiesOption);
}

std::optional<qint64> parseInteger(QStringView text)
{
    if (text.isEmpty()) {
        return std::nullopt;
    }
    bool negative = false;
    qsizetype i = 0;
    if (text[0] == u'+' || text[0] == u'-') {
        negative = text[0] == u'-';
        i = 1;
    }
    if (i == text.size()) {
        return std::nullopt;
    }
    // Accumulate negatively so that the smallest 64-bit value reads too.
    qint64 value = 0;
    constexpr qint64 lowest = std::numeric_limits<qint64>::min();
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9') {
            return std::nullopt;
        }
        const int digit = c - u'0';
        if (value < (lowest + digit) / 10) {
            return std::nullopt;
        }
        value = value * 10 - digit;
    }
    if (!negative) {
        if (value == lowest) {
            return std::nullopt;
        }
        value = -value;
    }
    return value;
}

bool endsWithIgnoringCase(QStringView text, QStringView suffix)
{
    return !suffix.isEmpty() && text.endsWith(suffix, Qt::CaseInsensitive);
}

} // namespace tavo
