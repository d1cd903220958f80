#include "e2e_support.h"

#include <QImage>
#include <QPlainTextEdit>
#include <QProcess>
#include <QtTest>

namespace {

// Where a shown window is on the screen, and its picture.
struct WindowShot
{
    QPoint origin;
    QImage image;
};

WindowShot shoot(const QString& window)
{
    WindowShot shot;
    QProcess geometry;
    geometry.start(QStringLiteral("xdotool"), {QStringLiteral("getwindowgeometry"), QStringLiteral("--shell"), window});
    geometry.waitForFinished(5000);
    for (const QString& line : QString::fromLatin1(geometry.readAllStandardOutput()).split(u'\n')) {
        if (line.startsWith(QLatin1String("X="))) {
            shot.origin.setX(line.mid(2).toInt());
        } else if (line.startsWith(QLatin1String("Y="))) {
            shot.origin.setY(line.mid(2).toInt());
        }
    }
    QProcess grab;
    grab.start(QStringLiteral("import"), {QStringLiteral("-window"), window, QStringLiteral("png:-")});
    grab.waitForFinished(10000);
    shot.image = QImage::fromData(grab.readAllStandardOutput(), "PNG");
    return shot;
}

// The text fields of a picture, top to bottom: bands of the base colour (white in the picker's
// light look) wider than a fifth of it, which on the card only its line fields draw.
QList<QRect> textFields(const QImage& image)
{
    QList<QRect> fields;
    QRect band;
    for (int y = 0; y < image.height(); ++y) {
        int bestStart = 0;
        int bestLength = 0;
        for (int x = 0, start = 0; x <= image.width(); ++x) {
            if (x < image.width() && image.pixel(x, y) == qRgb(255, 255, 255)) {
                continue;
            }
            if (x - start > bestLength) {
                bestStart = start;
                bestLength = x - start;
            }
            start = x + 1;
        }
        if (bestLength > image.width() / 5) {
            band = band.isNull() ? QRect(bestStart, y, bestLength, 1) : band.united(QRect(bestStart, y, bestLength, 1));
        } else if (!band.isNull()) {
            if (band.height() >= 8) {
                fields << band;
            }
            band = QRect();
        }
    }
    return fields;
}

} // namespace

// Builder commands typed into another program: an incomplete one opens the picker's card while
// the program keeps the keyboard, a click in a card field takes the keys away from trigger
// tracking until the card is done, a complete one asks for its output and stays as typed.
class TestBuilderEndToEnd : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void anIncompleteCommandShowsItsCard();
    void aCardFieldTakesTheKeysFromTheTrigger();
    void aCompleteCommandAsksForItsOutput();

private:
    static QString tavoctl(const QStringList& arguments, int* exitCode = nullptr);
    static void type(const QString& text)
    {
        e2e::xdotool({QStringLiteral("type"), QStringLiteral("--delay"), QStringLiteral("12"), text});
    }
    QString typedText() const { return m_editor->toPlainText(); }

    e2e::TavoRun m_tavoRun;
    QByteArray& m_tavoLog = m_tavoRun.log;
    std::unique_ptr<QPlainTextEdit> m_editor;
};

QString TestBuilderEndToEnd::tavoctl(const QStringList& arguments, int* exitCode)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    if (arguments.value(0) == QLatin1String("account")) {
        process.write("correct horse\n");
    }
    process.closeWriteChannel();
    process.waitForFinished(30000);
    if (exitCode) {
        *exitCode = process.exitCode();
    }
    return QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
}

void TestBuilderEndToEnd::initTestCase()
{
    const QList<QStringList> setup{
        {QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("sam")},
        {QStringLiteral("add"), QStringLiteral("thx"), QStringLiteral("Thank you!"), QStringLiteral("--collection"),
         QStringLiteral("Personal")},
        {QStringLiteral("collection"), QStringLiteral("add"), QStringLiteral("Clients"), QStringLiteral("--fields"),
         QStringLiteral("Phone")},
        {QStringLiteral("record"), QStringLiteral("add"), QStringLiteral("Clients"), QStringLiteral("--name"),
         QStringLiteral("Acme Ltd"), QStringLiteral("--alias"), QStringLiteral("acme-ltd"), QStringLiteral("--value"),
         QStringLiteral("Phone=555")},
        {QStringLiteral("builder"), QStringLiteral("new"), QStringLiteral("Invoice")},
        {QStringLiteral("builder"), QStringLiteral("set"), QStringLiteral("Invoice"), QStringLiteral("Prefix"),
         QStringLiteral("inv")},
        {QStringLiteral("builder"), QStringLiteral("set"), QStringLiteral("Invoice"), QStringLiteral("Collections"),
         QStringLiteral("Clients")},
        {QStringLiteral("builder"), QStringLiteral("set"), QStringLiteral("Invoice"), QStringLiteral("Variables"),
         QStringLiteral("Amount")},
    };
    for (const QStringList& arguments : setup) {
        int status = -1;
        const QString output = tavoctl(arguments, &status);
        QVERIFY2(status == 0, qPrintable(arguments.join(u' ') + QStringLiteral(": ") + output));
    }
    // The command line says what typing them would do.
    int status = -1;
    QVERIFY(
        tavoctl({QStringLiteral("expand"), QStringLiteral("\\inv-acme")}, &status)
            .contains(QStringLiteral("Shows the card of the builder app Invoice for \\inv-acme; missing: Amount.")));
    QCOMPARE(status, 0);
    QVERIFY(tavoctl({QStringLiteral("expand"), QStringLiteral("\\inv-acme-ltd-100")})
                .contains(QStringLiteral("Generation is not available yet.")));

    m_editor = e2e::targetWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
    m_tavoRun.start();
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.contains("keyboard tap running"), 15000);
}

void TestBuilderEndToEnd::cleanupTestCase()
{
    m_tavoRun.stop();
}

void TestBuilderEndToEnd::init()
{
    m_editor->clear();
    m_editor->activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(m_editor.get()));
}

void TestBuilderEndToEnd::anIncompleteCommandShowsItsCard()
{
    const qsizetype logFrom = m_tavoLog.size();
    type(QStringLiteral("Bill: \\inv-acme "));
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("picker shows the builder card of Invoice", logFrom) >= 0, 5000);
    QVERIFY(!e2e::visibleWindow(QStringLiteral("^Tavo picker$")).isEmpty());
    // The space was the command's; the program keeps the text and the keyboard.
    QTest::qWait(200);
    QCOMPARE(typedText(), QStringLiteral("Bill: \\inv-acme"));
    QVERIFY(m_editor->isActiveWindow());
    type(QStringLiteral(" ok"));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("Bill: \\inv-acme ok"), 3000);
    QVERIFY(m_tavoLog.indexOf("TavoBuilderGenerateShortcut", logFrom) < 0);
}

void TestBuilderEndToEnd::aCompleteCommandAsksForItsOutput()
{
    const qsizetype logFrom = m_tavoLog.size();
    type(QStringLiteral("\\inv-acme-ltd-100 "));
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("TavoBuilderGenerateShortcut: \\inv-acme-ltd-100\n", logFrom) >= 0,
                             5000);
    QTRY_VERIFY_WITH_TIMEOUT(
        m_tavoLog.indexOf("notice: Generating builder outputs is not available yet.", logFrom) >= 0, 3000);
    QTest::qWait(200);
    QCOMPARE(typedText(), QStringLiteral("\\inv-acme-ltd-100")); // left as typed, the space swallowed
    QVERIFY(m_editor->isActiveWindow());
    // Shortcuts expand behind it as ever.
    type(QStringLiteral(" \\thx "));
    QTRY_COMPARE_WITH_TIMEOUT(typedText(), QStringLiteral("\\inv-acme-ltd-100 Thank you! "), 5000);
}

void TestBuilderEndToEnd::aCardFieldTakesTheKeysFromTheTrigger()
{
    const qsizetype logFrom = m_tavoLog.size();
    type(QStringLiteral("Bill: \\inv-acme "));
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("picker shows the builder card of Invoice", logFrom) >= 0, 5000);
    const QString picker = e2e::visibleWindow(QStringLiteral("^Tavo picker$"));
    QVERIFY(!picker.isEmpty());
    QList<QRect> fields;
    WindowShot shot;
    auto fieldsShown = [&] {
        shot = shoot(picker);
        fields = textFields(shot.image);
        return fields.size();
    };
    QTRY_COMPARE_WITH_TIMEOUT(fieldsShown(), 2, 5000);                  // "Clients" and "Amount", once drawn
    shot.image.save(QDir::home().filePath(QStringLiteral("card.png"))); // for a look after a failure

    // A click in "Amount" gives the panel the keyboard: a trigger typed there is a value.
    const QPoint amount = shot.origin + fields.at(1).center();
    e2e::xdotool({QStringLiteral("mousemove"), QString::number(amount.x()), QString::number(amount.y()),
                  QStringLiteral("click"), QStringLiteral("1")});
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("a picker field has the keyboard", logFrom) >= 0, 5000);
    const qsizetype fieldFrom = m_tavoLog.indexOf("a picker field has the keyboard", logFrom);
    type(QStringLiteral("\\thx "));
    e2e::xdotool({QStringLiteral("key"), QStringLiteral("Return")});
    QTRY_VERIFY_WITH_TIMEOUT(
        m_tavoLog.indexOf("TavoBuilderGenerateShortcut: \\inv-acme-\"\\\\thx \"-pdf\n", logFrom) >= 0, 5000);
    QVERIFY(m_tavoLog.indexOf("results for \"thx\"", fieldFrom) < 0); // never tracked
    QVERIFY(m_tavoLog.indexOf("Pasted into", fieldFrom) < 0);         // never expanded

    // Completed on the card: "\<prefix>-<values>-<format code>", then the notice.
    e2e::xdotool({QStringLiteral("key"), QStringLiteral("ctrl+a")});
    type(QStringLiteral("100"));
    e2e::xdotool({QStringLiteral("key"), QStringLiteral("Return")});
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("TavoBuilderGenerateShortcut: \\inv-acme-100-pdf\n", logFrom) >= 0,
                             5000);
    QTRY_COMPARE_WITH_TIMEOUT(
        m_tavoLog.mid(logFrom).count("tavo.shell: notice: Generating builder outputs is not available yet."), 2, 3000);
    QCOMPARE(typedText(), QStringLiteral("Bill: \\inv-acme")); // the app got none of the card's keys

    // Escape closes the panel and gives the keyboard back.
    e2e::xdotool({QStringLiteral("key"), QStringLiteral("Escape")});
    QTRY_VERIFY_WITH_TIMEOUT(m_tavoLog.indexOf("the picker's fields gave the keyboard back", logFrom) >= 0, 5000);
    QTRY_VERIFY_WITH_TIMEOUT(e2e::visibleWindow(QStringLiteral("^Tavo picker$")).isEmpty(), 5000);
}

QTEST_MAIN(TestBuilderEndToEnd)
#include "tst_builder_e2e.moc"
