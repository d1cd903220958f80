#include "language/math_expression.h"

#include <QtTest>

#include <clocale>
#include <cmath>
#include <limits>
#include <numbers>

using tavo::MathExpression;

class TestMathExpression : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void looksLikeExpression_data();
    void looksLikeExpression();
    void evaluate_data();
    void evaluate();
    void formatted_data();
    void formatted();
};

namespace {

QString repeated(const char* piece, int count)
{
    return QString::fromLatin1(piece).repeated(count);
}

QString nested(int depth)
{
    return repeated("(", depth) + QStringLiteral("1") + repeated(")", depth);
}

} // namespace

void TestMathExpression::initTestCase()
{
    // The app takes the user's locale, so these tests must run under it too: the second run
    // under a German locale then has a comma as the C library's decimal mark.
    std::setlocale(LC_ALL, "");
    if (qEnvironmentVariable("LC_ALL").startsWith(QLatin1String("de_DE")))
        QVERIFY2(qstrcmp(std::localeconv()->decimal_point, ",") == 0, "the de_DE locale is not installed");
}

void TestMathExpression::looksLikeExpression_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("expected");

    QTest::newRow("empty") << QString() << false;
    QTest::newRow("only the trigger character") << QStringLiteral("\\") << false;
    QTest::newRow("only blanks and newlines") << QStringLiteral(" \t\n ") << false;
    QTest::newRow("sum after backslash") << QStringLiteral("\\2+3") << true;
    QTest::newRow("sum after slash") << QStringLiteral("/2+3") << true;
    QTest::newRow("sum without trigger character") << QStringLiteral("2+3") << true;
    QTest::newRow("unfinished sum") << QStringLiteral("\\2+") << true;
    QTest::newRow("trimmed before the trigger character") << QStringLiteral("  \\2*\n") << true;
    QTest::newRow("only one trigger character removed") << QStringLiteral("\\\\2+3") << false;
    QTest::newRow("plain number") << QStringLiteral("\\2") << false;
    QTest::newRow("plain decimal") << QStringLiteral("\\12.5") << false;
    QTest::newRow("number with trailing blank") << QStringLiteral("\\2 ") << false;
    QTest::newRow("word") << QStringLiteral("\\hello") << false;
    QTest::newRow("word with hyphen") << QStringLiteral("well-known") << false;
    QTest::newRow("constant is no starter") << QStringLiteral("pi*2") << false;
    QTest::newRow("letter times number") << QStringLiteral("x*2") << false;
    QTest::newRow("function call") << QStringLiteral("\\sqrt(4)") << true;
    QTest::newRow("function name in capitals") << QStringLiteral("SQRT(4") << true;
    QTest::newRow("function name without parenthesis") << QStringLiteral("\\sqrt") << false;
    QTest::newRow("blank between function name and parenthesis") << QStringLiteral("sqrt (4)") << false;
    QTest::newRow("longest function name") << QStringLiteral("average(") << true;
    QTest::newRow("log10 prefix") << QStringLiteral("log10(") << true;
    QTest::newRow("parenthesised number") << QStringLiteral("\\(1)") << true;
    QTest::newRow("open parenthesis") << QStringLiteral("(") << true;
    QTest::newRow("leading point") << QStringLiteral(".5%") << true;
    QTest::newRow("lone minus") << QStringLiteral("-") << true;
    QTest::newRow("lone plus") << QStringLiteral("+") << true;
    QTest::newRow("exponent notation has no operator") << QStringLiteral("2e5") << false;
    QTest::newRow("multiplication sign is no operator") << QStringLiteral("5\u00d73") << false;
    QTest::newRow("Arabic-Indic digit starts") << QStringLiteral("\u0663+1") << true;
    QTest::newRow("superscript digit starts") << QStringLiteral("\u00b2+1") << true;
    QTest::newRow("digit outside the BMP starts") << QStringLiteral("\U0001D7D9+1") << true;
    QTest::newRow("long sum") << repeated("1+", 50000) + QStringLiteral("1") << true;
    QTest::newRow("long number") << repeated("9", 100000) << false;
}

void TestMathExpression::looksLikeExpression()
{
    QFETCH(QString, text);
    QFETCH(bool, expected);
    QCOMPARE(MathExpression::looksLikeExpression(text), expected);
}

void TestMathExpression::evaluate_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("valid");
    QTest::addColumn<double>("expected");

    const auto value = [](const char* name, const QString& text, double expected) {
        QTest::newRow(name) << text << true << expected;
    };
    const auto absent = [](const char* name, const QString& text) { QTest::newRow(name) << text << false << 0.0; };

    // Trigger characters and blanks.
    value("precedence of product over sum", QStringLiteral("\\2+3*4"), 14);
    value("slash as trigger character", QStringLiteral("/2+3"), 5);
    value("without trigger character", QStringLiteral("2+3"), 5);
    value("trimmed before the trigger character", QStringLiteral(" \\2+3\n"), 5);
    value("blanks between all tokens", QStringLiteral("\\ 2 *\t( 3 + 4 ) "), 14);
    absent("only one trigger character removed", QStringLiteral("\\\\2+3"));
    absent("empty", QString());
    absent("only the trigger character", QStringLiteral("\\"));
    absent("only blanks", QStringLiteral("   "));

    // Operators.
    value("subtraction to the left", QStringLiteral("10-4-3"), 3);
    value("division to the left", QStringLiteral("100/10/5"), 2);
    value("parentheses", QStringLiteral("(2+3)*4"), 20);
    absent("missing closing parenthesis", QStringLiteral("(2+3"));
    absent("extra closing parenthesis", QStringLiteral("2+3)"));
    absent("empty parentheses", QStringLiteral("()"));
    absent("division by zero", QStringLiteral("1/0"));
    absent("division by negative zero", QStringLiteral("1/-0"));
    absent("division by a zero expression", QStringLiteral("1/(2-2)"));
    absent("infinite power", QStringLiteral("10^999"));
    absent("infinite product", QStringLiteral("10^300*10^300"));
    value("finite result of an infinite operand", QStringLiteral("1/10^999"), 0);
    absent("numbers side by side", QStringLiteral("2 3"));
    absent("dangling operator", QStringLiteral("2+"));
    absent("dangling power", QStringLiteral("2^"));
    absent("two operators", QStringLiteral("2*/3"));

    // Percent and remainder.
    value("percent", QStringLiteral("50%"), 0.5);
    value("percent in a product", QStringLiteral("200*10%"), 20);
    value("percent then sum", QStringLiteral("50%+1"), 1.5);
    value("percent then blank and minus", QStringLiteral("50 % - 1"), -0.5);
    value("percent twice", QStringLiteral("50%%"), 0.005);
    value("remainder", QStringLiteral("7%3"), 1);
    value("remainder by parenthesis", QStringLiteral("7 % (1+2)"), 1);
    value("remainder after blank", QStringLiteral("50% 3"), 2);
    value("remainder by leading point", QStringLiteral("5%.75"), 0.5);
    value("remainder by function", QStringLiteral("7%sqrt(9)"), 1);
    value("remainder by constant", QStringLiteral("7%e"), 7 - 2 * std::numbers::e);
    value("remainder keeps the dividend's sign", QStringLiteral("-7%3"), -1);
    absent("remainder by zero", QStringLiteral("7%0"));
    absent("remainder by another script's digit", QStringLiteral("7%\u0663"));

    // Signs and powers.
    value("minus applies after power", QStringLiteral("-2^2"), -4);
    value("negative exponent", QStringLiteral("2^-1"), 0.5);
    value("power to the right", QStringLiteral("2^3^2"), 512);
    value("parenthesised negative base", QStringLiteral("(-2)^2"), 4);
    value("power before product", QStringLiteral("2*3^2"), 18);
    value("double minus", QStringLiteral("--3"), 3);
    value("plus then minus", QStringLiteral("+-3"), -3);
    value("minus after operator", QStringLiteral("2*-3"), -6);

    // Numbers.
    value("decimal", QStringLiteral("1.5*2"), 3);
    value("leading points", QStringLiteral(".5+.5"), 1);
    value("trailing point", QStringLiteral("5.+1"), 6);
    value("leading zeros", QStringLiteral("007+1"), 8);
    value("decimal point under any locale", QStringLiteral("0.25+0.5"), 0.75);
    absent("lone point", QStringLiteral("."));
    absent("point in a sum", QStringLiteral("1+."));
    absent("two points", QStringLiteral("1.2.3"));
    absent("exponent notation", QStringLiteral("1e3"));
    absent("comma as decimal mark", QStringLiteral("1,5+1"));
    absent("thousands separator", QStringLiteral("1,000*2"));
    absent("Arabic-Indic digits", QStringLiteral("\u0663+1"));
    absent("fullwidth digits", QStringLiteral("\uff11+1"));
    absent("superscript two", QStringLiteral("3\u00b2"));
    absent("digit outside the BMP", QStringLiteral("\U0001D7D9+1"));

    // Names.
    value("pi", QStringLiteral("pi"), 3.141592653589793);
    value("pi in capitals", QStringLiteral("PI"), 3.141592653589793);
    value("e", QStringLiteral("e"), 2.718281828459045);
    value("constants in a product", QStringLiteral("2*pi*e"), 2 * std::numbers::pi * std::numbers::e);
    value("function name in capitals", QStringLiteral("SQRT(4)"), 2);
    value("function name in mixed case", QStringLiteral("Sqrt(4)"), 2);
    value("blank before argument list", QStringLiteral("sqrt (16)"), 4);
    value("nested calls", QStringLiteral("sqrt(abs(-16))+max(1,round(2.6))"), 7);
    value("expressions as arguments", QStringLiteral("max(1+1, 2*3, 10%)"), 6);
    absent("unknown function", QStringLiteral("foo(1)"));
    absent("unknown constant", QStringLiteral("x+1"));
    absent("constant called", QStringLiteral("pi(2)"));
    absent("function without arguments list", QStringLiteral("sqrt"));
    absent("function without parenthesis", QStringLiteral("sqrt 4"));
    absent("name starting with underscore", QStringLiteral("_sqrt(4)"));
    absent("trailing comma", QStringLiteral("sum(1,)"));
    absent("leading comma", QStringLiteral("sum(,1)"));
    absent("unclosed argument list", QStringLiteral("sum(1,2"));
    absent("semicolon between arguments", QStringLiteral("sum(1;2)"));

    // Each function with its argument checks.
    value("sqrt", QStringLiteral("sqrt(16)"), 4);
    value("sqrt of zero", QStringLiteral("sqrt(0)"), 0);
    absent("sqrt of negative", QStringLiteral("sqrt(-1)"));
    absent("sqrt without argument", QStringLiteral("sqrt()"));
    absent("sqrt with two arguments", QStringLiteral("sqrt(1,2)"));
    value("root", QStringLiteral("root(27,3)"), 3);
    value("root of negative degree", QStringLiteral("root(16,-2)"), 0.25);
    absent("root of degree zero", QStringLiteral("root(8,0)"));
    absent("root with one argument", QStringLiteral("root(8)"));
    value("abs", QStringLiteral("abs(-3)"), 3);
    absent("abs without argument", QStringLiteral("abs()"));
    absent("abs with two arguments", QStringLiteral("abs(1,2)"));
    value("sin in radians", QStringLiteral("sin(pi/2)"), 1);
    value("cos", QStringLiteral("cos(0)"), 1);
    value("tan", QStringLiteral("tan(pi/4)"), std::tan(std::numbers::pi / 4));
    absent("sin with two arguments", QStringLiteral("sin(1,2)"));
    absent("cos without argument", QStringLiteral("cos()"));
    absent("tan with two arguments", QStringLiteral("tan(1,2)"));
    value("asin", QStringLiteral("asin(1)"), std::numbers::pi / 2);
    value("acos", QStringLiteral("acos(-1)"), std::numbers::pi);
    value("atan", QStringLiteral("atan(1)"), std::numbers::pi / 4);
    absent("asin out of domain", QStringLiteral("asin(2)"));
    absent("acos with two arguments", QStringLiteral("acos(1,2)"));
    absent("atan without argument", QStringLiteral("atan()"));
    value("ln", QStringLiteral("ln(e^2)"), 2);
    absent("ln of zero", QStringLiteral("ln(0)"));
    absent("ln of negative", QStringLiteral("ln(-1)"));
    absent("ln with two arguments", QStringLiteral("ln(1,2)"));
    value("log is base ten", QStringLiteral("log(1000)"), 3);
    value("log10", QStringLiteral("log10(100)"), 2);
    absent("log of zero", QStringLiteral("log(0)"));
    absent("log10 of negative", QStringLiteral("log10(-5)"));
    absent("log without argument", QStringLiteral("log()"));
    value("exp", QStringLiteral("exp(1)"), std::numbers::e);
    absent("exp overflows", QStringLiteral("exp(1000)"));
    absent("exp with two arguments", QStringLiteral("exp(1,2)"));
    value("floor", QStringLiteral("floor(-2.5)"), -3);
    value("ceil", QStringLiteral("ceil(-2.5)"), -2);
    absent("floor with two arguments", QStringLiteral("floor(1,2)"));
    absent("ceil without argument", QStringLiteral("ceil()"));
    value("round half away from zero", QStringLiteral("round(2.5)"), 3);
    value("round negative half away from zero", QStringLiteral("round(-2.5)"), -3);
    value("round to places", QStringLiteral("round(2.345,2)"), 2.35);
    value("round to tens", QStringLiteral("round(1234,-2)"), 1200);
    value("round to twelve places", QStringLiteral("round(1,12)"), 1);
    value("round to fractional places", QStringLiteral("round(2.345,1.5)"),
          std::round(2.345 * std::pow(10, 1.5)) / std::pow(10, 1.5));
    absent("round to thirteen places", QStringLiteral("round(1,13)"));
    absent("round to minus thirteen places", QStringLiteral("round(1,-13)"));
    absent("round without argument", QStringLiteral("round()"));
    absent("round with three arguments", QStringLiteral("round(1,2,3)"));
    value("pow", QStringLiteral("pow(2,10)"), 1024);
    absent("pow with one argument", QStringLiteral("pow(2)"));
    absent("pow of negative to a fraction", QStringLiteral("pow(-8,1/3)"));
    value("min", QStringLiteral("min(3,1,2)"), 1);
    value("max", QStringLiteral("max(-1,-2)"), -1);
    absent("min of one value", QStringLiteral("min(3)"));
    absent("max of one value", QStringLiteral("max(3)"));
    absent("max with not-a-number", QStringLiteral("max(1,asin(2))"));
    value("sum of one value", QStringLiteral("sum(3)"), 3);
    value("sum", QStringLiteral("sum(1,2,3)"), 6);
    absent("sum without argument", QStringLiteral("sum()"));
    value("avg", QStringLiteral("avg(1,2)"), 1.5);
    value("average", QStringLiteral("average(1,2,3)"), 2);
    value("mean of one value", QStringLiteral("mean(4)"), 4);
    absent("mean without argument", QStringLiteral("mean()"));
    absent("avg without argument", QStringLiteral("avg( )"));
    value("median of odd count", QStringLiteral("median(3,1,2)"), 2);
    value("median of even count", QStringLiteral("median(4,1,3,2)"), 2.5);
    value("median of one value", QStringLiteral("median(5)"), 5);
    value("median of two huge values", QStringLiteral("median(10^308,10^308)"), 1e308);
    absent("median without argument", QStringLiteral("median()"));
    absent("median with not-a-number", QStringLiteral("median(1,asin(2),3)"));

    // Hostile and long input.
    value("nesting of a hundred", nested(100), 1);
    absent("nesting of ten thousand", nested(10000));
    absent("hundred thousand open parentheses", repeated("(", 100000));
    absent("ten thousand minus signs", repeated("-", 10000) + QStringLiteral("1"));
    absent("ten thousand nested calls", repeated("abs(", 10000) + QStringLiteral("1"));
    value("sum of fifty thousand terms", repeated("1+", 49999) + QStringLiteral("1"), 50000);
    value("function with a hundred arguments", QStringLiteral("sum(") + repeated("1,", 99) + QStringLiteral("1)"), 100);
    value("thousand leading zeros", repeated("0", 1000) + QStringLiteral("1"), 1);
    absent("number beyond the double range", QStringLiteral("1") + repeated("0", 400));
    value("number beyond the double range as divisor", QStringLiteral("1/1") + repeated("0", 400), 0);
    value("number below the double range", QStringLiteral("0.") + repeated("0", 400) + QStringLiteral("1"), 0);
}

void TestMathExpression::evaluate()
{
    QFETCH(QString, text);
    QFETCH(bool, valid);
    QFETCH(double, expected);

    const std::optional<double> result = MathExpression::evaluate(text);
    QCOMPARE(result.has_value(), valid);
    if (valid)
        QCOMPARE(*result, expected);
}

void TestMathExpression::formatted_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QString>("expected");

    QTest::newRow("integer") << 14.0 << QStringLiteral("14");
    QTest::newRow("half with a point") << 0.5 << QStringLiteral("0.5");
    QTest::newRow("negative") << -2.5 << QStringLiteral("-2.5");
    QTest::newRow("negative zero") << -0.0 << QStringLiteral("-0");
    QTest::newRow("third to twelve digits") << 1.0 / 3 << QStringLiteral("0.333333333333");
    QTest::newRow("two thirds rounded") << 2.0 / 3 << QStringLiteral("0.666666666667");
    QTest::newRow("binary noise hidden") << 0.1 + 0.2 << QStringLiteral("0.3");
    QTest::newRow("twelve integer digits") << 123456789012.0 << QStringLiteral("123456789012");
    QTest::newRow("thirteen integer digits") << 1234567890123.0 << QStringLiteral("1.23456789012e+12");
    QTest::newRow("large") << 1e20 << QStringLiteral("1e+20");
    QTest::newRow("small fixed") << 0.0001 << QStringLiteral("0.0001");
    QTest::newRow("small exponent") << 0.00001 << QStringLiteral("1e-05");
    QTest::newRow("largest double") << std::numeric_limits<double>::max() << QStringLiteral("1.79769313486e+308");
    QTest::newRow("smallest normal double")
        << std::numeric_limits<double>::min() << QStringLiteral("2.22507385851e-308");
}

void TestMathExpression::formatted()
{
    QFETCH(double, value);
    QFETCH(QString, expected);
    QCOMPARE(MathExpression::formatted(value), expected);
}

QTEST_GUILESS_MAIN(TestMathExpression)
#include "tst_math_expression.moc"
