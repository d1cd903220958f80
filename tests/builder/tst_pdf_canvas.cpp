#include "builder/output/text_pdf_canvas.h"

#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;

namespace {

QString numberedLines(int count)
{
    QStringList lines;
    for (int i = 1; i <= count; ++i) {
        lines.append(QStringLiteral("Line %1").arg(i));
    }
    return lines.join(u'\n');
}

} // namespace

Q_DECLARE_METATYPE(std::optional<double>)

class TestPdfCanvas : public QObject
{
    Q_OBJECT

private slots:
    void pageCount_data();
    void pageCount();
    void unwritableDestination();
};

void TestPdfCanvas::pageCount_data()
{
    QTest::addColumn<int>("lines");
    QTest::addColumn<double>("fontSize");
    QTest::addColumn<bool>("rich");
    QTest::addColumn<std::optional<double>>("largestRun");
    QTest::addColumn<int>("pages");

    QTest::newRow("plain, 11 pt, 35 lines") << 35 << 11.0 << false << std::optional<double>() << 1;
    QTest::newRow("plain, 11 pt, 36 lines") << 36 << 11.0 << false << std::optional<double>() << 2;
    QTest::newRow("an empty text is one page") << 0 << 11.0 << false << std::optional<double>() << 1;
    QTest::newRow("no size reads as 11 pt") << 36 << 0.0 << false << std::optional<double>() << 2;
    QTest::newRow("rich: the largest run sets the lines, 24 pt gives 16")
        << 17 << 11.0 << true << std::optional<double>(24) << 2;
    QTest::newRow("rich: runs smaller than the body keep the body's size")
        << 36 << 11.0 << true << std::optional<double>(6) << 2;
    QTest::newRow("rich without sizes: the body's") << 35 << 11.0 << true << std::optional<double>() << 1;
}

void TestPdfCanvas::pageCount()
{
    QFETCH(int, lines);
    QFETCH(double, fontSize);
    QFETCH(bool, rich);
    QFETCH(std::optional<double>, largestRun);
    const QString text = lines ? numberedLines(lines) : QString();
    std::optional<StyledText> styled;
    if (rich) {
        styled = StyledText{};
        RunStyle big;
        big.pointSize = largestRun;
        appendRun(styled->runs, text.section(u'\n', 0, 0), big);
        appendRun(styled->runs, text.mid(text.section(u'\n', 0, 0).size()), RunStyle());
    }
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.pdf"));
    const Result<int> pages =
        AITextPDFCanvas::makePDF(QStringLiteral("T"), text, styled, QString(), QStringLiteral("Bill"), QString(),
                                 fontSize, false, false, false, QString(), path);
    QVERIFY(pages.ok());
    QTEST(*pages, "pages");
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(file.read(5) == "%PDF-");
}

void TestPdfCanvas::unwritableDestination()
{
    const Result<int> pages = AITextPDFCanvas::makePDF(QStringLiteral("T"), QStringLiteral("x"), std::nullopt,
                                                       QString(), QString(), QString(), 11, false, false, false,
                                                       QString(), QStringLiteral("/nonexistent-folder/out.pdf"));
    QVERIFY(!pages.ok());
    QVERIFY(!pages.error().description.isEmpty());
}

QTEST_MAIN(TestPdfCanvas)
#include "tst_pdf_canvas.moc"
