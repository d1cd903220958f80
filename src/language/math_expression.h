#pragma once

#include <QString>
#include <QStringView>

#include <optional>

namespace tavo {

// The inline calculator: a recursive-descent evaluator over the typed trigger. Both entry
// points run inside the keyboard path, so they read the text in place and never allocate.
class MathExpression
{
public:
    // Whether a Space typed after `text` belongs to an unfinished expression rather than ending
    // a key: a number or a known function name followed somewhere by an operator or parenthesis.
    static bool looksLikeExpression(QStringView text);

    // The value of `text` (one leading `\` or `/` allowed), or nothing when it does not parse
    // completely or the value is not finite.
    static std::optional<double> evaluate(QStringView text);

    // "%.12g" with a point as decimal mark, whatever the user's locale.
    static QString formatted(double value);

private:
    explicit MathExpression(QStringView chars)
        : m_chars(chars)
    {
    }

    std::optional<double> expression();
    std::optional<double> term();
    std::optional<double> unary();
    std::optional<double> primary();
    std::optional<double> number();
    std::optional<double> call(QStringView name);
    void skipWhitespace();
    bool atEnd() const { return m_index >= m_chars.size(); }
    QChar peek() const { return atEnd() ? QChar() : m_chars[m_index]; }

    QStringView m_chars;
    qsizetype m_index = 0;
    int m_depth = 0;
};

} // namespace tavo
