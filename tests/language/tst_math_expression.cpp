#include "language/math_expression.h"

#include <QtTest>

#include <clocale>
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

    QTest::newRow("only the trigger character") << QStringLiteral("\\") << false;
    QTest::newRow("sum after backslash") << QStringLiteral("\\2+3") << true;
    QTest::newRow("unfinished sum, trimmed") << QStringLiteral("  \\2+\n") << true;
    QTest::newRow("only one trigger character removed") << QStringLiteral("\\\\2+3") << false;
    QTest::newRow("plain number") << QStringLiteral("\\12.5") << false;
    QTest::newRow("constant is no starter") << QStringLiteral("pi*2") << false;
    QTest::newRow("function call in capitals") << QStringLiteral("SQRT(4") << true;
    QTest::newRow("function name without parenthesis") << QStringLiteral("\\sqrt") << false;
    QTest::newRow("blank before parenthesis") << QStringLiteral("sqrt (4)") << false;
    QTest::newRow("exponent notation has no operator") << QStringLiteral("2e5") << false;
    QTest::newRow("digit outside the BMP starts") << QStringLiteral("\U0001D7D9+1") << true;
    QTest::newRow("lone minus") << QStringLiteral("-") << true;
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

    value("precedence, trimmed, blanks", QStringLiteral(" \\ 2 +\t3*4\n"), 14);
    value("slash as trigger character", QStringLiteral("/2+3"), 5);
    absent("only one trigger character removed", QStringLiteral("\\\\2+3"));
    absent("only the trigger character", QStringLiteral("\\"));

    value("subtraction and division to the left", QStringLiteral("100/10/5-1-1"), 0);
    absent("missing closing parenthesis", QStringLiteral("(2+3"));
    absent("extra closing parenthesis", QStringLiteral("2+3)"));
    absent("division by zero", QStringLiteral("1/0"));
    absent("infinite power", QStringLiteral("10^999"));
    absent("numbers side by side", QStringLiteral("2 3"));

    value("percent", QStringLiteral("50%"), 0.5);
    value("percent then blank and minus", QStringLiteral("50 % - 1"), -0.5);
    value("percent twice", QStringLiteral("50%%"), 0.005);
    value("remainder after blank", QStringLiteral("50% 3"), 2);
    value("remainder by constant", QStringLiteral("7%e"), 7 - 2 * std::numbers::e);
    value("remainder keeps the dividend's sign", QStringLiteral("-7%3"), -1);
    absent("remainder by zero", QStringLiteral("7%0"));

    value("minus applies after power", QStringLiteral("-2^2"), -4);
    value("negative exponent", QStringLiteral("2^-1"), 0.5);
    value("power to the right", QStringLiteral("2^3^2"), 512);
    value("minus after operator", QStringLiteral("2*--3"), 6);

    value("leading and trailing points", QStringLiteral(".5+5."), 5.5);
    value("decimal point under any locale", QStringLiteral("0.25+0.5"), 0.75);
    absent("lone point", QStringLiteral("."));
    absent("two points", QStringLiteral("1.2.3"));
    absent("exponent notation", QStringLiteral("1e3"));
    absent("comma as decimal mark", QStringLiteral("1,5+1"));
    absent("another script's digits", QStringLiteral("\u0663+1"));

    value("pi in capitals", QStringLiteral("PI"), std::numbers::pi);
    value("function name in capitals", QStringLiteral("SQRT(4)"), 2);
    value("blank before argument list", QStringLiteral("sqrt (16)"), 4);
    value("nested calls with expressions", QStringLiteral("sqrt(abs(-16))+max(1+1,round(2.6),10%)"), 7);
    absent("unknown function", QStringLiteral("foo(1)"));
    absent("constant called", QStringLiteral("pi(2)"));
    absent("function without parenthesis", QStringLiteral("sqrt 4"));
    absent("trailing comma", QStringLiteral("sum(1,)"));
    absent("semicolon between arguments", QStringLiteral("sum(1;2)"));

    absent("too few arguments", QStringLiteral("root(8)"));
    absent("empty argument list", QStringLiteral("avg( )"));
    absent("argument out of domain", QStringLiteral("sqrt(-1)"));
    absent("root of degree zero", QStringLiteral("root(8,0)"));
    absent("negative base to a fraction", QStringLiteral("pow(-8,1/3)"));
    absent("overflowing function", QStringLiteral("exp(1000)"));
    absent("not-a-number argument", QStringLiteral("median(1,asin(2),3)"));
    value("trigonometry in radians", QStringLiteral("sin(pi/2)+acos(-1)"), 1 + std::numbers::pi);
    value("log is base ten", QStringLiteral("log(1000)"), 3);
    value("floor and ceil toward the infinities", QStringLiteral("floor(-2.5)*10+ceil(-2.5)"), -32);
    value("round half away from zero", QStringLiteral("round(-2.5)"), -3);
    value("round to places", QStringLiteral("round(2.345,2)"), 2.35);
    value("round to tens", QStringLiteral("round(1234,-2)"), 1200);
    value("round to twelve places", QStringLiteral("round(1,12)"), 1);
    absent("round to thirteen places", QStringLiteral("round(1,13)"));
    value("sum of one value", QStringLiteral("sum(3)"), 3);
    value("median of even count", QStringLiteral("median(4,1,3,2)"), 2.5);
    value("median of two huge values", QStringLiteral("median(10^308,10^308)"), 1e308);

    value("nesting of a hundred", nested(100), 1);
    absent("nesting of ten thousand", nested(10000));
    absent("ten thousand minus signs", repeated("-", 10000) + QStringLiteral("1"));
    absent("ten thousand nested calls", repeated("abs(", 10000) + QStringLiteral("1"));
    value("sum of fifty thousand terms", repeated("1+", 49999) + QStringLiteral("1"), 50000);
    absent("number beyond the double range", QStringLiteral("1") + repeated("0", 400));
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

    QTest::newRow("negative with a point") << -2.5 << QStringLiteral("-2.5");
    QTest::newRow("negative zero") << -0.0 << QStringLiteral("-0");
    QTest::newRow("binary noise hidden") << 0.1 + 0.2 << QStringLiteral("0.3");
    QTest::newRow("twelve integer digits") << 123456789012.0 << QStringLiteral("123456789012");
    QTest::newRow("thirteen integer digits") << 1234567890123.0 << QStringLiteral("1.23456789012e+12");
    QTest::newRow("small exponent") << 0.00001 << QStringLiteral("1e-05");
}

void TestMathExpression::formatted()
{
    QFETCH(double, value);
    QFETCH(QString, expected);
    QCOMPARE(MathExpression::formatted(value), expected);
}

QTEST_GUILESS_MAIN(TestMathExpression)
#include "tst_math_expression.moc"
