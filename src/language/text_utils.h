#pragma once

#include <QRegularExpression>
#include <QString>
#include <QStringView>

#include <optional>

namespace tavo {

// The first `count` characters of `text` as a person counts them: grapheme clusters, so a cut
// never splits a surrogate pair, an accent from its letter or an emoji sequence.
QString leadingCharacters(const QString& text, qsizetype count);

// How many characters a person sees in `text` (grapheme clusters).
qsizetype characterCount(const QString& text);

// `text` without its last character as a person sees it (a whole emoji or accented letter).
QString withoutLastCharacter(const QString& text);

// A pattern whose \d, \s and \w match every script's digits, blanks and letters, not only ASCII.
QRegularExpression unicodeRegex(const QString& pattern,
                                QRegularExpression::PatternOptions options = QRegularExpression::NoPatternOption);

// A whole text of ASCII digits with an optional leading sign, read as a 64-bit integer.
// Anything else (other scripts' digits, blanks, an overflow) gives nothing.
std::optional<qint64> parseInteger(QStringView text);

// `text` ends in `suffix`, ignoring case. An empty suffix ends nothing.
bool endsWithIgnoringCase(QStringView text, QStringView suffix);

} // namespace tavo
