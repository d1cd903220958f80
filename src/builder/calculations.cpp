#include "builder/calculations.h"

#include "language/math_expression.h"
#include "language/text_utils.h"
#include "store/defaults.h"

#include <QLocale>
#include <QRegularExpression>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

namespace tavo {

namespace {

const QRegularExpression& nonKeyRuns()
{
    static const QRegularExpression pattern(QStringLiteral("[^a-z0-9]+"));
    return pattern;
}

// The number as MathExpression reads it back: plain digits (it knows no "e" notation), rounded
// to twelve significant digits as "%.12g" would, negatives in parentheses so "Amount^2" squares
// the whole value.
QString substitutedNumber(double value)
{
    char buffer[400];
    auto rounded = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 12);
    double twelveDigits = value;
    std::from_chars(buffer, rounded.ptr, twelveDigits);
    const auto plain = std::to_chars(buffer, buffer + sizeof buffer, twelveDigits, std::chars_format::fixed);
    if (plain.ec != std::errc()) {
        return {};
    }
    const QString digits = QString::fromLatin1(buffer, plain.ptr - buffer);
    return twelveDigits < 0 ? u'(' + digits + u')' : digits;
}

// "%.2f" with a point, whatever LC_NUMERIC says.
QString twoDecimals(double value)
{
    char buffer[400];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, 2);
    return result.ec == std::errc() ? QString::fromLatin1(buffer, result.ptr - buffer) : QString();
}

// A value's number: every character but digits, "e", signs and points deleted, then the whole
// rest read in the C locale. "₹1,200.50" reads 1200.5; "Acme" nothing.
std::optional<double> cleanedNumber(const QString& value)
{
    QString cleaned;
    cleaned.reserve(value.size());
    for (const QChar c : value) {
        const char16_t u = c.unicode();
        if ((u >= u'0' && u <= u'9') || u == u'e' || u == u'E' || u == u'+' || u == u'.' || u == u'-') {
            cleaned.append(c);
        }
    }
    if (cleaned.isEmpty()) {
        return std::nullopt;
    }
    bool ok = false;
    const double number = QLocale::c().toDouble(cleaned, &ok);
    if (!ok || !std::isfinite(number)) {
        return std::nullopt;
    }
    return number;
}

// One name the expressions may use.
struct Substitution
{
    QString key;
    std::optional<QString> number; // nothing: the value has no number and the name stays
};

// Whether `c` is a word character as \w reads it with Unicode properties: a letter, a number or "_".
bool isWordCodePoint(char32_t c)
{
    if (c == U'_') {
        return true;
    }
    switch (QChar::category(c)) {
    case QChar::Letter_Uppercase:
    case QChar::Letter_Lowercase:
    case QChar::Letter_Titlecase:
    case QChar::Letter_Modifier:
    case QChar::Letter_Other:
    case QChar::Number_DecimalDigit:
    case QChar::Number_Letter:
    case QChar::Number_Other:
        return true;
    default:
        return false;
    }
}

bool wordBefore(QStringView text, qsizetype index)
{
    if (index <= 0) {
        return false;
    }
    const QChar low = text[index - 1];
    if (low.isLowSurrogate() && index >= 2 && text[index - 2].isHighSurrogate()) {
        return isWordCodePoint(QChar::surrogateToUcs4(text[index - 2], low));
    }
    return isWordCodePoint(low.unicode());
}

bool wordAt(QStringView text, qsizetype index)
{
    if (index >= text.size()) {
        return false;
    }
    const QChar high = text[index];
    if (high.isHighSurrogate() && index + 1 < text.size() && text[index + 1].isLowSurrogate()) {
        return isWordCodePoint(QChar::surrogateToUcs4(high, text[index + 1]));
    }
    return isWordCodePoint(high.unicode());
}

// Replaces each whole-word occurrence of `key`, ignoring case: what (?i)\b<key>\b does with
// Unicode properties, without building a pattern per name.
QString replacedWholeWord(const QString& expression, const QString& key, const QString& replacement)
{
    QString result;
    qsizetype from = 0;
    qsizetype copied = 0;
    for (;;) {
        const qsizetype at = expression.indexOf(key, from, Qt::CaseInsensitive);
        if (at < 0) {
            break;
        }
        const qsizetype end = at + key.size();
        // A boundary on each side: the word-ness changes there.
        if (wordBefore(expression, at) != wordAt(expression, at) &&
            wordBefore(expression, end) != wordAt(expression, end)) {
            result.append(QStringView(expression).sliced(copied, at - copied));
            result.append(replacement);
            copied = end;
            from = end;
        } else {
            from = at + 1;
        }
    }
    if (copied == 0) {
        return expression;
    }
    result.append(QStringView(expression).sliced(copied));
    return result;
}

void setSubstitution(std::vector<Substitution>& entries, const QString& key, const QString& value)
{
    std::optional<QString> number;
    if (const std::optional<double> parsed = cleanedNumber(value)) {
        number = substitutedNumber(*parsed);
    }
    for (Substitution& entry : entries) {
        if (entry.key == key) {
            entry.number = number;
            return;
        }
    }
    // Longest first, so "Tax Rate" is replaced before "Tax" can take a piece of it; among equal
    // lengths the newer entry goes first, so a formula's result beats a typed value it shadows.
    const auto at = std::find_if(entries.begin(), entries.end(),
                                 [&](const Substitution& entry) { return entry.key.size() <= key.size(); });
    entries.insert(at, Substitution{key, number});
}

QString substituted(QString expression, const std::vector<Substitution>& entries)
{
    for (const Substitution& entry : entries) {
        if (entry.number && !entry.key.isEmpty()) {
            expression = replacedWholeWord(expression, entry.key, *entry.number);
        }
    }
    return expression;
}

QString slug(const QString& name)
{
    QString text = name.toLower();
    text.replace(nonKeyRuns(), QStringLiteral("-"));
    while (text.startsWith(u'-')) {
        text.remove(0, 1);
    }
    while (text.endsWith(u'-')) {
        text.chop(1);
    }
    return text;
}

} // namespace

QString builderTokenKey(const QString& name)
{
    // Lower case first: a few letters beyond ASCII lower-case into it (the Kelvin sign into "k").
    const bool ascii = std::all_of(name.cbegin(), name.cend(), [](QChar c) { return c.unicode() < 0x80; });
    const QString lower = ascii ? name : name.toLower();
    QString key;
    key.reserve(lower.size());
    for (const QChar c : lower) {
        const char16_t u = c.unicode();
        if ((u >= u'a' && u <= u'z') || (u >= u'0' && u <= u'9')) {
            key.append(c);
        } else if (u >= u'A' && u <= u'Z') {
            key.append(QChar(u + (u'a' - u'A')));
        }
    }
    return key;
}

std::optional<std::pair<QString, QString>> parseBuilderCalculation(const QString& line)
{
    const QString trimmed = line.trimmed();
    const qsizetype equals = trimmed.indexOf(u'=');
    if (equals >= 0) {
        const QString name = trimmed.left(equals).trimmed();
        const QString expression = trimmed.mid(equals + 1).trimmed();
        if (name.isEmpty() || expression.isEmpty()) {
            return std::nullopt;
        }
        return std::pair(name, expression);
    }
    static const QRegularExpression labelled = unicodeRegex(QStringLiteral("^(.+?%)\\s+([A-Za-z][A-Za-z ]*)$"));
    const QRegularExpressionMatch match = labelled.match(trimmed);
    if (!match.hasMatch()) {
        return std::nullopt;
    }
    return std::pair(match.captured(2), match.captured(1));
}

QStringList builderCalculationNames(const QString& text)
{
    QStringList names;
    for (const QString& line : text.split(u'\n')) {
        if (const auto formula = parseBuilderCalculation(line)) {
            const QString key = builderTokenKey(formula->first);
            if (!key.isEmpty()) {
                names.append(key);
            }
        }
    }
    return names;
}

BuilderCalculationResult resolveBuilderCalculations(const QString& text, const BuilderValues& values)
{
    BuilderCalculationResult result{values, {}};
    if (text.trimmed().isEmpty()) {
        return result;
    }
    static const QRegularExpression percentLabel = unicodeRegex(QStringLiteral("%\\s+[A-Za-z][A-Za-z ]*$"));

    std::vector<Substitution> entries;
    entries.reserve(values.size() + 8);
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        setSubstitution(entries, it.key(), it.value());
    }

    QStringList summary;
    for (const QString& line : text.split(u'\n')) {
        const auto formula = parseBuilderCalculation(line);
        if (!formula) {
            continue;
        }
        QString expression = formula->second;
        const QRegularExpressionMatch label = percentLabel.match(expression);
        if (label.hasMatch()) {
            expression = expression.left(label.capturedStart()) + u'%';
        }
        const std::optional<double> value = MathExpression::evaluate(substituted(expression, entries));
        if (!value) {
            continue;
        }
        const QString printed = twoDecimals(*value);
        const QString key = builderTokenKey(formula->first);
        if (!key.isEmpty()) {
            result.values.insert(key, printed);
            setSubstitution(entries, key, printed);
        }
        summary.append(formula->first + QStringLiteral(": ") + printed);
    }
    result.summary = summary.join(u'\n');
    return result;
}

QStringList formulaTokens(const QString& prefix, const QStringList& collections, const QStringList& variables)
{
    QStringList tokens;
    tokens.reserve(1 + collections.size() + variables.size());
    tokens.append(formulaActionPrefix + (prefix.isEmpty() ? QStringLiteral("your-action") : prefix));
    for (const QString& collection : collections) {
        tokens.append(formulaCollectionPrefix + collection);
    }
    for (const QString& variable : variables) {
        tokens.append(formulaVariablePrefix + variable);
    }
    return tokens;
}

QStringList mergedFormulaOrder(const std::optional<QStringList>& stored, const QStringList& tokens)
{
    QStringList order;
    if (stored) {
        for (const QString& token : *stored) {
            if (tokens.contains(token) && !order.contains(token)) {
                order.append(token);
            }
        }
    } else {
        order = tokens;
    }
    for (const QString& token : tokens) {
        if (!order.contains(token)) {
            order.append(token);
        }
    }
    return order;
}

QString formulaBlockTitle(const QString& token)
{
    if (token.startsWith(formulaActionPrefix)) {
        return token.mid(formulaActionPrefix.size());
    }
    if (token.startsWith(formulaCollectionPrefix)) {
        return QStringLiteral("Collection ") + token.mid(formulaCollectionPrefix.size());
    }
    if (token.startsWith(formulaVariablePrefix)) {
        return token.mid(formulaVariablePrefix.size());
    }
    return token;
}

QString formulaPreviewText(const QString& prefix, const QStringList& order)
{
    const QString head = prefix.isEmpty() ? QStringLiteral("your-action") : prefix;
    QStringList blocks;
    for (const QString& token : order) {
        if (token.startsWith(formulaActionPrefix)) {
            blocks.append(head);
        } else if (token.startsWith(formulaCollectionPrefix)) {
            blocks.append(u'<' + token.mid(formulaCollectionPrefix.size()) + QStringLiteral("\u2026>"));
        } else if (token.startsWith(formulaVariablePrefix)) {
            blocks.append(u'<' + slug(token.mid(formulaVariablePrefix.size())) + u'>');
        }
    }
    return QStringLiteral("Action: ") + head + QStringLiteral("  |  Command: \\") + blocks.join(u'-');
}

FormulaOrderModel::FormulaOrderModel(Defaults& defaults, QString app)
    : m_defaults(defaults)
    , m_app(std::move(app))
{
}

void FormulaOrderModel::load(const QString& prefix, const QStringList& collections, const QStringList& variables)
{
    m_prefix = prefix;
    m_collections = collections;
    m_order = mergedFormulaOrder(m_defaults.stringList(formulaOrderKeyPrefix + m_app),
                                 formulaTokens(prefix, collections, variables));
    m_initialised = true;
}

void FormulaOrderModel::persist()
{
    m_defaults.setStringList(formulaOrderKeyPrefix + m_app, m_order);
}

bool FormulaOrderModel::moveFormulaBlock(qsizetype from, qsizetype to)
{
    if (from < 0 || from >= m_order.size() || to < 0 || to >= m_order.size()) {
        return false;
    }
    m_order.move(from, to);
    persist();
    return true;
}

bool FormulaOrderModel::replaceCollectionBlock(qsizetype at, const QString& collection)
{
    if (at < 0 || at >= m_order.size() || !m_order[at].startsWith(formulaCollectionPrefix) ||
        collection.trimmed().isEmpty()) {
        return false;
    }
    const QString old = m_order[at].mid(formulaCollectionPrefix.size());
    const QString replacement = formulaCollectionPrefix + collection.trimmed();
    // A collection already on another block is not listed twice: that block gives way.
    const qsizetype existing = m_order.indexOf(replacement);
    m_order[at] = replacement;
    if (existing >= 0 && existing != at) {
        m_order.removeAt(existing);
    }
    m_collections.removeAll(collection.trimmed());
    const qsizetype oldIndex = m_collections.indexOf(old);
    if (oldIndex >= 0) {
        m_collections[oldIndex] = collection.trimmed();
    } else {
        m_collections.append(collection.trimmed());
    }
    persist();
    return true;
}

QString FormulaOrderModel::previewText() const
{
    return formulaPreviewText(m_prefix, m_order);
}

} // namespace tavo
