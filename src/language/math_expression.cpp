#include "language/math_expression.h"

#include <QVarLengthArray>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <numbers>
#include <numeric>
#include <system_error>

namespace tavo {

namespace {

// Deep enough for any arithmetic a person types, shallow enough that a hostile trigger of
// thousands of "(" or "-" cannot exhaust the stack, even under the sanitizers.
constexpr int kMaxDepth = 200;

// round(a, b) scales by 10^b; beyond twelve places a double has no digits left to round.
constexpr double kMaxRoundingPlaces = 12;

enum class Function
{
    Sqrt,
    Root,
    Abs,
    Sin,
    Cos,
    Tan,
    Asin,
    Acos,
    Atan,
    Ln,
    Log10,
    Exp,
    Floor,
    Ceil,
    Round,
    Pow,
    Min,
    Max,
    Sum,
    Mean,
    Median,
};

struct FunctionName
{
    QLatin1StringView name;
    Function function;
};

constexpr std::array<FunctionName, 24> kFunctions{{
    {QLatin1StringView("sqrt"), Function::Sqrt},   {QLatin1StringView("abs"), Function::Abs},
    {QLatin1StringView("sin"), Function::Sin},     {QLatin1StringView("cos"), Function::Cos},
    {QLatin1StringView("tan"), Function::Tan},     {QLatin1StringView("asin"), Function::Asin},
    {QLatin1StringView("acos"), Function::Acos},   {QLatin1StringView("atan"), Function::Atan},
    {QLatin1StringView("log"), Function::Log10},   {QLatin1StringView("log10"), Function::Log10},
    {QLatin1StringView("ln"), Function::Ln},       {QLatin1StringView("exp"), Function::Exp},
    {QLatin1StringView("floor"), Function::Floor}, {QLatin1StringView("ceil"), Function::Ceil},
    {QLatin1StringView("round"), Function::Round}, {QLatin1StringView("min"), Function::Min},
    {QLatin1StringView("max"), Function::Max},     {QLatin1StringView("sum"), Function::Sum},
    {QLatin1StringView("avg"), Function::Mean},    {QLatin1StringView("average"), Function::Mean},
    {QLatin1StringView("mean"), Function::Mean},   {QLatin1StringView("median"), Function::Median},
    {QLatin1StringView("pow"), Function::Pow},     {QLatin1StringView("root"), Function::Root},
}};

bool isAsciiDigit(QChar c)
{
    return c >= u'0' && c <= u'9';
}

// Lower-cases the way QString::toLower does, with the common ASCII case kept off the tables.
char16_t lowered(QChar c)
{
    const char16_t u = c.unicode();
    if (u < 0x80)
        return (u >= u'A' && u <= u'Z') ? char16_t(u + (u'a' - u'A')) : u;
    return c.toLower().unicode();
}

// Whether the lower-case form of `text` starts with `name`, without building that form.
bool startsWithLowered(QStringView text, QLatin1StringView name)
{
    if (text.size() < name.size())
        return false;
    for (qsizetype i = 0; i < name.size(); ++i) {
        if (lowered(text[i]) != name[i].unicode())
            return false;
    }
    return true;
}

bool equalsLowered(QStringView text, QLatin1StringView name)
{
    return text.size() == name.size() && startsWithLowered(text, name);
}

// The code point at `index`, so that a digit or letter outside the Basic Multilingual Plane
// counts as one character.
char32_t codePointAt(QStringView text, qsizetype index)
{
    const QChar c = text[index];
    if (c.isHighSurrogate() && index + 1 < text.size() && text[index + 1].isLowSurrogate())
        return QChar::surrogateToUcs4(c, text[index + 1]);
    return c.unicode();
}

QStringView prepared(QStringView text)
{
    text = text.trimmed();
    if (!text.isEmpty() && (text.front() == u'\\' || text.front() == u'/'))
        text = text.sliced(1);
    return text;
}

// Decrements the nesting depth however the parse leaves a level.
class DepthGuard
{
public:
    explicit DepthGuard(int& depth)
        : m_depth(depth)
    {
        ++m_depth;
    }
    ~DepthGuard() { --m_depth; }
    DepthGuard(const DepthGuard&) = delete;
    DepthGuard& operator=(const DepthGuard&) = delete;
    bool exceeded() const { return m_depth > kMaxDepth; }

private:
    int& m_depth;
};

using Arguments = QVarLengthArray<double, 8>;

std::optional<double> apply(Function function, Arguments& args)
{
    const qsizetype count = args.size();
    // A not-a-number (asin(2)) has no place in an ordering, and std::sort must not see one.
    const bool hasNaN = std::any_of(args.cbegin(), args.cend(), [](double a) { return std::isnan(a); });
    const auto single = [&](auto f) -> std::optional<double> {
        if (count != 1)
            return std::nullopt;
        return f(args[0]);
    };

    switch (function) {
    case Function::Sqrt:
        if (count != 1 || args[0] < 0)
            return std::nullopt;
        return std::sqrt(args[0]);
    case Function::Root:
        if (count != 2 || args[1] == 0)
            return std::nullopt;
        return std::pow(args[0], 1 / args[1]);
    case Function::Abs:
        return single([](double a) { return std::fabs(a); });
    case Function::Sin:
        return single([](double a) { return std::sin(a); });
    case Function::Cos:
        return single([](double a) { return std::cos(a); });
    case Function::Tan:
        return single([](double a) { return std::tan(a); });
    case Function::Asin:
        return single([](double a) { return std::asin(a); });
    case Function::Acos:
        return single([](double a) { return std::acos(a); });
    case Function::Atan:
        return single([](double a) { return std::atan(a); });
    case Function::Ln:
        if (count != 1 || !(args[0] > 0))
            return std::nullopt;
        return std::log(args[0]);
    case Function::Log10:
        if (count != 1 || !(args[0] > 0))
            return std::nullopt;
        return std::log10(args[0]);
    case Function::Exp:
        return single([](double a) { return std::exp(a); });
    case Function::Floor:
        return single([](double a) { return std::floor(a); });
    case Function::Ceil:
        return single([](double a) { return std::ceil(a); });
    case Function::Round:
        if (count == 1)
            return std::round(args[0]);
        // A fractional number of places is taken as it comes: the scale is still 10^b.
        if (count == 2 && std::fabs(args[1]) <= kMaxRoundingPlaces) {
            const double scale = std::pow(10.0, args[1]);
            return std::round(args[0] * scale) / scale;
        }
        return std::nullopt;
    case Function::Pow:
        if (count != 2)
            return std::nullopt;
        return std::pow(args[0], args[1]);
    case Function::Min:
        if (count < 2 || hasNaN)
            return std::nullopt;
        return *std::min_element(args.cbegin(), args.cend());
    case Function::Max:
        if (count < 2 || hasNaN)
            return std::nullopt;
        return *std::max_element(args.cbegin(), args.cend());
    case Function::Sum:
    case Function::Mean: {
        if (count < 1)
            return std::nullopt;
        double total = 0;
        for (double a : args)
            total += a;
        return function == Function::Sum ? total : total / double(count);
    }
    case Function::Median: {
        if (count < 1 || hasNaN)
            return std::nullopt;
        std::sort(args.begin(), args.end());
        const qsizetype middle = count / 2;
        if (count % 2 == 1)
            return args[middle];
        // midpoint rather than (a + b) / 2, which would overflow for two huge values.
        return std::midpoint(args[middle - 1], args[middle]);
    }
    }
    return std::nullopt;
}

} // namespace

bool MathExpression::looksLikeExpression(QStringView text)
{
    text = prepared(text);
    if (text.isEmpty())
        return false;

    const char32_t first = codePointAt(text, 0);
    const bool starter = QChar::isNumber(first) || first == U'.' || first == U'(' || first == U'+' || first == U'-';
    if (!starter) {
        // Most triggers are words; comparing the first letter alone turns nearly all of them away.
        const char16_t head = lowered(text.front());
        const bool function = std::any_of(kFunctions.cbegin(), kFunctions.cend(), [text, head](const FunctionName& f) {
            return f.name.front().unicode() == head && text.size() > f.name.size() && text[f.name.size()] == u'(' &&
                   startsWithLowered(text, f.name);
        });
        if (!function)
            return false;
    }

    for (QChar c : text) {
        switch (c.unicode()) {
        case u'+':
        case u'-':
        case u'*':
        case u'/':
        case u'%':
        case u'^':
        case u'(':
        case u')':
            return true;
        default:
            break;
        }
    }
    return false;
}

std::optional<double> MathExpression::evaluate(QStringView text)
{
    MathExpression parser(prepared(text));
    const std::optional<double> value = parser.expression();
    if (!value)
        return std::nullopt;
    parser.skipWhitespace();
    if (!parser.atEnd() || !std::isfinite(*value))
        return std::nullopt;
    return value;
}

QString MathExpression::formatted(double value)
{
    // to_chars with a precision is printf's "%.12g" in the C locale, whatever setlocale() chose.
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 12);
    return QString::fromLatin1(buffer, result.ptr - buffer);
}

std::optional<double> MathExpression::expression()
{
    std::optional<double> value = term();
    while (value) {
        skipWhitespace();
        const QChar op = peek();
        if (op != u'+' && op != u'-')
            break;
        ++m_index;
        const std::optional<double> right = term();
        if (!right)
            return std::nullopt;
        *value = op == u'+' ? *value + *right : *value - *right;
    }
    return value;
}

std::optional<double> MathExpression::term()
{
    std::optional<double> value = unary();
    while (value) {
        skipWhitespace();
        const QChar op = peek();
        if (op == u'*' || op == u'/') {
            ++m_index;
            const std::optional<double> right = unary();
            if (!right || (op == u'/' && *right == 0))
                return std::nullopt;
            *value = op == u'*' ? *value * *right : *value / *right;
        } else if (op == u'%') {
            ++m_index;
            skipWhitespace();
            // "7%3" is a remainder, "50%" or "200*10% + 1" a percent sign.
            bool remainder = false;
            if (!atEnd()) {
                const char32_t next = codePointAt(m_chars, m_index);
                remainder = QChar::isNumber(next) || QChar::isLetter(next) || next == U'.' || next == U'(';
            }
            if (!remainder) {
                *value /= 100;
                continue;
            }
            const std::optional<double> right = unary();
            if (!right || *right == 0)
                return std::nullopt;
            *value = std::fmod(*value, *right);
        } else {
            break;
        }
    }
    return value;
}

std::optional<double> MathExpression::unary()
{
    const DepthGuard guard(m_depth);
    if (guard.exceeded())
        return std::nullopt;

    skipWhitespace();
    if (peek() == u'+') {
        ++m_index;
        return unary();
    }
    if (peek() == u'-') {
        ++m_index;
        const std::optional<double> value = unary();
        if (!value)
            return std::nullopt;
        return -*value;
    }

    const std::optional<double> base = primary();
    if (!base)
        return std::nullopt;
    skipWhitespace();
    if (peek() != u'^')
        return base;
    ++m_index;
    // The exponent is a unary, so powers group to the right and take their own sign: 2^-1.
    const std::optional<double> exponent = unary();
    if (!exponent)
        return std::nullopt;
    return std::pow(*base, *exponent);
}

std::optional<double> MathExpression::primary()
{
    skipWhitespace();
    const QChar c = peek();
    if (c == u'(') {
        ++m_index;
        const std::optional<double> value = expression();
        skipWhitespace();
        if (!value || peek() != u')')
            return std::nullopt;
        ++m_index;
        return value;
    }
    if (isAsciiDigit(c) || c == u'.')
        return number();
    if (c.isLetter() || c == u'_') {
        const qsizetype start = m_index++;
        while (!atEnd() && (peek().isLetterOrNumber() || peek() == u'_'))
            ++m_index;
        const QStringView name = m_chars.sliced(start, m_index - start);
        if (equalsLowered(name, QLatin1StringView("pi")))
            return std::numbers::pi;
        if (equalsLowered(name, QLatin1StringView("e")))
            return std::numbers::e;
        return call(name);
    }
    return std::nullopt;
}

std::optional<double> MathExpression::number()
{
    const qsizetype start = m_index;
    qsizetype point = -1;
    while (!atEnd()) {
        const QChar c = peek();
        if (c == u'.' && point < 0)
            point = m_index;
        else if (!isAsciiDigit(c))
            break;
        ++m_index;
    }
    const qsizetype length = m_index - start;
    if (length == 1 && point == start)
        return std::nullopt; // a lone "."

    // from_chars wants narrow characters; the token is ASCII, so a plain copy does.
    QVarLengthArray<char, 64> digits(length);
    for (qsizetype i = 0; i < length; ++i)
        digits[i] = char(m_chars[start + i].unicode());

    double value = 0;
    const auto [end, error] = std::from_chars(digits.cbegin(), digits.cend(), value, std::chars_format::fixed);
    if (error == std::errc::result_out_of_range) {
        // Too large reads as infinity, which the final check rejects; too small reads as zero.
        const QStringView integerPart = m_chars.sliced(start, (point < 0 ? m_index : point) - start);
        const bool large = std::any_of(integerPart.cbegin(), integerPart.cend(), [](QChar d) { return d != u'0'; });
        return large ? std::numeric_limits<double>::infinity() : 0.0;
    }
    if (error != std::errc() || end != digits.cend())
        return std::nullopt;
    return value;
}

std::optional<double> MathExpression::call(QStringView name)
{
    const auto known = std::find_if(kFunctions.cbegin(), kFunctions.cend(),
                                    [name](const FunctionName& f) { return equalsLowered(name, f.name); });
    if (known == kFunctions.cend())
        return std::nullopt;

    skipWhitespace();
    if (peek() != u'(')
        return std::nullopt;
    ++m_index;

    // An empty list parses; each function's own count check then rejects it.
    Arguments args;
    skipWhitespace();
    if (peek() == u')') {
        ++m_index;
        return apply(known->function, args);
    }
    for (;;) {
        const std::optional<double> argument = expression();
        if (!argument)
            return std::nullopt;
        args.append(*argument);
        skipWhitespace();
        const QChar separator = peek();
        ++m_index;
        if (separator == u')')
            return apply(known->function, args);
        if (separator != u',')
            return std::nullopt;
    }
}

void MathExpression::skipWhitespace()
{
    while (!atEnd() && m_chars[m_index].isSpace())
        ++m_index;
}

} // namespace tavo
