#include "builder/builder_app.h"
#include "builder/template_render.h"
#include "language/rtf.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

struct Run
{
    int status = -1;
    QString out;
    QString err;
};

Run runProgram(const QString& program, const QStringList& arguments)
{
    QProcess process;
    process.start(program, arguments);
    Run run;
    if (!process.waitForFinished(60000)) {
        run.err = u"did not finish: "_s + process.errorString();
        return run;
    }
    run.status = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    run.out = QString::fromUtf8(process.readAllStandardOutput());
    run.err = QString::fromUtf8(process.readAllStandardError());
    return run;
}

Run tavoctl(const QStringList& arguments)
{
    return runProgram(QStringLiteral(TAVOCTL_PATH), arguments);
}

// A poppler tool's output; the tools come with scripts/setup-deps.
QString poppler(const QString& tool, const QStringList& arguments)
{
    if (QStandardPaths::findExecutable(tool).isEmpty()) {
        qWarning("%s is missing: scripts/setup-deps installs poppler-utils", qPrintable(tool));
        return {};
    }
    return runProgram(tool, arguments).out;
}

const QString invoicePrompt = u"INVOICE\nCustomer: {{collection1}}\nAmount: ₹{{amount}}\nGST: ₹{{GST}}\n"
                              u"Total: ₹{{total}}\n\n{{details}}"_s;
const QString invoiceText = u"INVOICE\nCustomer: Acme Ltd: 555\nAmount: ₹1000\nGST: ₹180.00\nTotal: ₹1180.00\n\n"
                            u"Pay within 14 days."_s;

QString numberedLines(int count)
{
    QStringList lines;
    for (int i = 1; i <= count; ++i) {
        lines.append(u"Line "_s + QString::number(i));
    }
    return lines.join(u'\n');
}

} // namespace

class TestBuilderRender : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void commands_data();
    void commands();
    void richTemplate();
    void htmlFiles();
    void pdfDocument();
    void pdfPages_data();
    void pdfPages();
    void pdfAccent_data();
    void pdfAccent();
    void pdfAsset();

private:
    QString m_out;
};

void TestBuilderRender::init()
{
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s).removeRecursively();
    m_out = qEnvironmentVariable("TMPDIR") + u"/out"_s;
    QDir(m_out).removeRecursively();
    QVERIFY(QDir().mkpath(m_out));

    Defaults defaults;
    TavoAccountStore(defaults).accept(u"sam"_s);
    DB(defaults).activateProfile(u"sam"_s);
    writeBuilderAppNames(defaults, {u"Invoice"_s, u"Long"_s});
    defaults.setValues({
        {u"tavoBuilderPrefix.Invoice"_s, u"inv"_s},
        {u"tavoBuilderVariables.Invoice"_s, u"Amount"_s},
        {u"tavoBuilderCollections.Invoice"_s, u"Clients"_s},
        {u"tavoBuilderPrompt.Invoice"_s, invoicePrompt},
        {u"tavoBuilderDetails.Invoice"_s, u"Pay within 14 days."_s},
        {u"tavoBuilderCalculations.Invoice"_s, u"GST = Amount * 18%\nTotal = Amount + GST"_s},
        {u"tavoBuilderTemplate.Invoice"_s, u"Bill"_s},
        {u"tavoBuilderFormat.Invoice"_s, u"PDF"_s},
        {u"tavoBuilderPrefix.Long"_s, u"long"_s},
        {u"tavoBuilderFormat.Long"_s, u"Text"_s},
    });
    for (const QStringList& step :
         {QStringList{u"record"_s, u"add"_s, u"Clients"_s, u"--name"_s, u"Acme Ltd"_s, u"--alias"_s, u"acme-ltd"_s,
                      u"--value"_s, u"Phone=555"_s},
          QStringList{u"record"_s, u"add"_s, u"Clients"_s, u"--name"_s, u"Twin"_s, u"--alias"_s, u"twin"_s}}) {
        const Run run = tavoctl(step);
        QVERIFY2(run.status == 0, qPrintable(run.err));
    }
}

void TestBuilderRender::commands_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");

    const QStringList render{u"builder"_s, u"render"_s};
    QTest::newRow("an incomplete command") << (render + QStringList{u"\\inv"_s}) << 1 << QString()
                                           << u"Complete the missing values in the shortcut popup.\n"_s;
    QTest::newRow("an alias no record has")
        << (render + QStringList{u"\\inv-nobody-100"_s}) << 1 << QString()
        << u"No record with alias ‘nobody’ was found in Clients. Add or select the exact record, then try again.\n"_s;
    QTest::newRow("no app") << (render + QStringList{u"\\zzz-1"_s}) << 1 << QString()
                            << u"No builder app matches \\zzz-1.\n"_s;
    QTest::newRow("text on standard output, formulas filled")
        << (render + QStringList{u"\\inv-ACME-LTD-1000"_s, u"--format"_s, u"text"_s}) << 0 << (invoiceText + u'\n')
        << QString();
    QTest::newRow("a format word in the command")
        << (render + QStringList{u"/inv-acme-ltd-1000-txt"_s}) << 0 << (invoiceText + u'\n') << QString();
    QTest::newRow("a format render does not know")
        << (render + QStringList{u"\\inv-acme-ltd-1000"_s, u"--format"_s, u"docx"_s}) << 2 << QString()
        << u"--format takes text, rtf, html or pdf.\n"
           u"Usage: tavoctl builder render TEXT [--format text|rtf|html|pdf] [--out PATH]\n"_s;
    QTest::newRow("an app without a template has nothing to give")
        << (render + QStringList{u"\\long"_s}) << 1 << QString() << u"No output was generated.\n"_s;
}

void TestBuilderRender::commands()
{
    QFETCH(QStringList, arguments);
    const Run run = tavoctl(arguments);
    QTEST(run.err, "err");
    QTEST(run.out, "out");
    QTEST(run.status, "status");
}

void TestBuilderRender::richTemplate()
{
    StyledText rich;
    RunStyle bold;
    bold.bold = true;
    appendRun(rich.runs, u"  Total: "_s, RunStyle());
    appendRun(rich.runs, u"{{total}}"_s, bold);
    appendRun(rich.runs, u" for {{collection1}}\n\n"_s, RunStyle());
    Defaults().setBytes(u"tavoBuilderDefaultRTF.Invoice"_s, rtfFromStyledText(rich));

    const Run text = tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--format"_s, u"text"_s});
    QCOMPARE(text.err, QString());
    QCOMPARE(text.out, u"Total: 1180.00 for Acme Ltd: 555\n"_s);

    const Run rtf = tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--format"_s, u"rtf"_s});
    QCOMPARE(rtf.status, 0);
    const std::optional<StyledText> read = styledTextFromRtf(rtf.out.toLatin1());
    QVERIFY(read);
    QCOMPARE(read->plainText(), u"Total: 1180.00 for Acme Ltd: 555"_s);
    const auto value = std::find_if(read->runs.cbegin(), read->runs.cend(),
                                    [](const StyledRun& run) { return run.text.contains(u"1180.00"_s); });
    QVERIFY(value != read->runs.cend());
    QVERIFY(value->style.bold);
    QCOMPARE(value->text, u"1180.00"_s);
}

void TestBuilderRender::htmlFiles()
{
    const Run run =
        tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--format"_s, u"html"_s, u"--out"_s, m_out});
    QCOMPARE(run.err, QString());
    const QString path = run.out.trimmed();
    QCOMPARE(QFileInfo(path).absolutePath(), QFileInfo(m_out).absoluteFilePath());
    QVERIFY2(QRegularExpression(u"^inv-acme-ltd-1000-[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\\.html$"_s)
                 .match(QFileInfo(path).fileName())
                 .hasMatch(),
             qPrintable(path));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(file.readAll()), makeBuilderStandaloneHTML(invoiceText, u"Invoice"_s, u"#6828d9"_s));

    // A template that is a page of its own takes its values escaped.
    Defaults().setString(u"tavoBuilderPrompt.Invoice"_s, u"<!doctype html><p>{{collection1}} & {{total}}</p>"_s);
    Defaults().setString(u"tavoBuilderPrompt.Long"_s, u"<b>{{details}}</b>"_s);
    const QString page = m_out + u"/page.html"_s;
    QCOMPARE(tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--format"_s, u"html"_s, u"--out"_s, page})
                 .status,
             0);
    QFile pageFile(page);
    QVERIFY(pageFile.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(pageFile.readAll()), u"<!doctype html><p>Acme Ltd: 555 & 1180.00</p>"_s);
}

void TestBuilderRender::pdfDocument()
{
    const Run run = tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--out"_s, m_out});
    QCOMPARE(run.err, QString());
    QCOMPARE(run.status, 0);
    const QString pdf = run.out.trimmed();
    QVERIFY2(pdf.endsWith(u".pdf"_s) && QFileInfo(pdf).fileName().startsWith(u"inv-acme-ltd-1000-"_s), qPrintable(pdf));

    const QString info = poppler(u"pdfinfo"_s, {pdf});
    QVERIFY2(info.contains(QRegularExpression(u"Pages:\\s+1\\n"_s)), qPrintable(info));
    QVERIFY2(info.contains(u"612 x 792 pts"_s), qPrintable(info));
    QVERIFY2(info.contains(QRegularExpression(u"Title:\\s+Invoice\\n"_s)), qPrintable(info));

    const QString text = poppler(u"pdftotext"_s, {u"-f"_s, u"1"_s, u"-l"_s, u"1"_s, pdf, u"-"_s});
    for (const QString& expected : {u"INVOICE"_s, u"Customer: Acme Ltd: 555"_s, u"Total: ₹1180.00"_s, u"GST: ₹180.00"_s,
                                    u"Pay within 14 days."_s, u"Created with Tavo · Invoice · 1 of 1"_s}) {
        QVERIFY2(text.contains(expected), qPrintable(expected + u" is not in:\n"_s + text));
    }

    // Every font in the file is embedded, so the document reads the same on any computer.
    const QStringList fonts = poppler(u"pdffonts"_s, {pdf}).split(u'\n', Qt::SkipEmptyParts).mid(2);
    QVERIFY(!fonts.isEmpty());
    for (const QString& font : fonts) {
        const QStringList columns = font.split(QRegularExpression(u"\\s+"_s), Qt::SkipEmptyParts);
        QVERIFY2(columns.size() >= 5 && columns[columns.size() - 5] == u"yes"_s, qPrintable(font));
    }
}

void TestBuilderRender::pdfPages_data()
{
    QTest::addColumn<double>("fontSize");
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("pages");
    QTest::addColumn<QString>("lastPageFirstLine");

    QTest::newRow("11 pt: 35 lines a page") << 11.0 << 80 << 3 << u"Line 71"_s;
    QTest::newRow("8 pt: 42 lines a page, one more line") << 8.0 << 43 << 2 << u"Line 43"_s;
    QTest::newRow("8 pt: 42 lines fill one page") << 8.0 << 42 << 1 << u"Line 1"_s;
    QTest::newRow("400 pt: a line a page") << 400.0 << 3 << 3 << u"Line 3"_s;
}

void TestBuilderRender::pdfPages()
{
    QFETCH(double, fontSize);
    QFETCH(int, lines);
    QFETCH(int, pages);
    QFETCH(QString, lastPageFirstLine);
    Defaults defaults;
    defaults.setString(u"tavoBuilderPrompt.Long"_s, numberedLines(lines));
    defaults.setNumber(u"tavoBuilderDefaultFontSize.Long"_s, fontSize);
    const QString pdf = m_out + u"/long.pdf"_s;
    const Run run = tavoctl({u"builder"_s, u"render"_s, u"\\long"_s, u"--format"_s, u"pdf"_s, u"--out"_s, pdf});
    QCOMPARE(run.err, QString());
    QCOMPARE(run.out, pdf + u'\n');

    const QString info = poppler(u"pdfinfo"_s, {pdf});
    QVERIFY2(info.contains(QRegularExpression(u"Pages:\\s+"_s + QString::number(pages) + u"\\n"_s)), qPrintable(info));
    const QString page = QString::number(pages);
    const QString last = poppler(u"pdftotext"_s, {u"-f"_s, page, u"-l"_s, page, pdf, u"-"_s});
    QVERIFY2(last.contains(u"Created with Tavo · Long · "_s + page + u" of "_s + page), qPrintable(last));
    if (fontSize < 100) {
        // Small type: every line of the page is there, in order, beginning where the page begins.
        const QStringList found = last.split(u'\n', Qt::SkipEmptyParts).filter(u"Line "_s);
        QVERIFY2(!found.isEmpty(), qPrintable(last));
        QCOMPARE(found.first(), lastPageFirstLine);
        QCOMPARE(found.last(), u"Line "_s + QString::number(lines));
    } else {
        QVERIFY2(last.contains(lastPageFirstLine.left(2)), qPrintable(last));
    }
}

void TestBuilderRender::pdfAccent_data()
{
    QTest::addColumn<QString>("style");
    QTest::addColumn<QColor>("accent");
    QTest::newRow("Bill") << u"Bill"_s << QColor::fromRgbF(0.39f, 0.12f, 0.78f);
    QTest::newRow("Proposal") << u"Proposal"_s << QColor::fromRgbF(0.57f, 0.16f, 0.95f);
    QTest::newRow("Receipt") << u"Receipt"_s << QColor::fromRgbF(0.72f, 0.35f, 0.12f);
    QTest::newRow("Formal Letter") << u"Formal Letter"_s << QColor::fromRgbF(0.2f, 0.12f, 0.38f);
    QTest::newRow("Modern") << u"Modern"_s << QColor::fromRgbF(0.24f, 0.14f, 0.45f);
}

void TestBuilderRender::pdfAccent()
{
    QFETCH(QString, style);
    QFETCH(QColor, accent);
    Defaults defaults;
    defaults.setString(u"tavoBuilderTemplate.Invoice"_s, style);
    defaults.setString(u"tavoBuilderPrompt.Invoice"_s,
                       invoicePrompt +
                           u"\n\n| Item | Qty | Price |\n|---|:-:|--:|\n| Tea | 2 | ₹40 |\n| Cake | 1 | ₹90 |"_s);
    const QString pdf = m_out + u"/"_s + style + u".pdf"_s;
    QCOMPARE(tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--out"_s, pdf}).err, QString());

    const QString text = poppler(u"pdftotext"_s, {u"-layout"_s, pdf, u"-"_s});
    QVERIFY2(text.contains(QRegularExpression(u"Item\\s+Qty\\s+Price"_s)), qPrintable(text));
    QVERIFY2(text.contains(QRegularExpression(u"Cake\\s+1\\s+₹90"_s)), qPrintable(text));
    QVERIFY2(!text.contains(u"---"_s), qPrintable(text));

    const QString prefix = m_out + u"/"_s + style;
    poppler(u"pdftoppm"_s, {u"-r"_s, u"72"_s, u"-png"_s, u"-singlefile"_s, pdf, prefix});
    const QImage image(prefix + u".png"_s);
    QCOMPARE(image.size(), QSize(612, 792));
    const QColor bar = image.pixelColor(300, 6);
    QVERIFY2(std::abs(bar.red() - accent.red()) <= 3 && std::abs(bar.green() - accent.green()) <= 3 &&
                 std::abs(bar.blue() - accent.blue()) <= 3,
             qPrintable(bar.name() + u" is not "_s + accent.name()));
    QCOMPARE(image.pixelColor(300, 20), QColor(Qt::white));
    // The title is drawn in the accent too.
    bool titleInAccent = false;
    for (int x = 48; x < 200 && !titleInAccent; ++x) {
        for (int y = 44; y < 74 && !titleInAccent; ++y) {
            const QColor c = image.pixelColor(x, y);
            titleInAccent = std::abs(c.red() - accent.red()) <= 8 && std::abs(c.green() - accent.green()) <= 8 &&
                            std::abs(c.blue() - accent.blue()) <= 8;
        }
    }
    QVERIFY(titleInAccent);
}

void TestBuilderRender::pdfAsset()
{
    // A three-page letterhead: the invoice's one page of text gets two more, each over its page.
    Defaults defaults;
    defaults.setString(u"tavoBuilderPrompt.Long"_s, numberedLines(80));
    const QString letterhead = m_out + u"/letterhead.pdf"_s;
    QCOMPARE(tavoctl({u"builder"_s, u"render"_s, u"\\long"_s, u"--format"_s, u"pdf"_s, u"--out"_s, letterhead}).err,
             QString());
    defaults.setString(u"tavoBuilderAsset.Invoice"_s, letterhead);
    const QString pdf = m_out + u"/with-asset.pdf"_s;
    QCOMPARE(tavoctl({u"builder"_s, u"render"_s, u"\\inv-acme-ltd-1000"_s, u"--out"_s, pdf}).err, QString());

    const QString info = poppler(u"pdfinfo"_s, {pdf});
    QVERIFY2(info.contains(QRegularExpression(u"Pages:\\s+3\\n"_s)), qPrintable(info));
    QVERIFY(poppler(u"pdftotext"_s, {u"-f"_s, u"1"_s, u"-l"_s, u"1"_s, pdf, u"-"_s}).contains(u"Total: ₹1180.00"_s));
    const QString third = poppler(u"pdftotext"_s, {u"-f"_s, u"3"_s, u"-l"_s, u"3"_s, pdf, u"-"_s});
    QVERIFY2(third.contains(u"Created with Tavo · Invoice · 3 of 3"_s) && !third.contains(u"Line"_s),
             qPrintable(third));

    // The asset's page is drawn as a picture over the whole page: its own accent bar (Modern)
    // lies over the invoice's.
    const QString prefix = m_out + u"/with-asset-3"_s;
    poppler(u"pdftoppm"_s,
            {u"-r"_s, u"72"_s, u"-png"_s, u"-singlefile"_s, u"-f"_s, u"3"_s, u"-l"_s, u"3"_s, pdf, prefix});
    const QImage image(prefix + u".png"_s);
    QCOMPARE(image.size(), QSize(612, 792));
    const QColor bar = image.pixelColor(300, 6);
    const QColor modern = QColor::fromRgbF(0.24f, 0.14f, 0.45f);
    QVERIFY2(std::abs(bar.red() - modern.red()) <= 6 && std::abs(bar.blue() - modern.blue()) <= 6,
             qPrintable(bar.name()));
    // The letterhead's last lines, as pixels, where the invoice has no text of its own.
    bool ink = false;
    for (int x = 48; x < 100 && !ink; ++x) {
        for (int y = 95; y < 112 && !ink; ++y) {
            ink = image.pixelColor(x, y).lightness() < 128;
        }
    }
    QVERIFY(ink);
}

QTEST_GUILESS_MAIN(TestBuilderRender)
#include "tst_builder_render.moc"
