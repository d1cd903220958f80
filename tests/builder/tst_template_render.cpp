#include "builder/builder_command.h"
#include "builder/template_render.h"

#include <QtTest>

using namespace tavo;

namespace {

// Sunday 5 January 2025, 3:07 PM in New York (the zone the tests run in).
LiveTokenSources pinnedClock()
{
    LiveTokenSources sources;
    sources.now = [] { return QDateTime(QDate(2025, 1, 5), QTime(20, 7, 42), Qt::UTC); };
    sources.locale = "en_US";
    return sources;
}

BuilderValues valuesOf(const QStringList& pairs)
{
    BuilderValues values;
    for (const QString& pair : pairs) {
        const qsizetype equals = pair.indexOf(u'=');
        values.insert(pair.left(equals), pair.mid(equals + 1));
    }
    return values;
}

RunStyle boldStyle()
{
    RunStyle style;
    style.bold = true;
    return style;
}

RunStyle italicStyle()
{
    RunStyle style;
    style.italic = true;
    style.pointSize = 18;
    return style;
}

StyledText styled(const QList<StyledRun>& runs)
{
    StyledText text;
    text.runs = runs;
    return text;
}

const QUuid fixedId = QUuid(QStringLiteral("{6F1B4C2A-9D3E-4B5F-8A7C-0D1E2F3A4B5C}"));

CustomBuilderCommand invoiceCommand(const QString& clientAlias, const QString& amount)
{
    CustomBuilderCommand command;
    command.app = QStringLiteral("Invoice");
    command.prefix = QStringLiteral("inv");
    command.slotKinds = {builderSlotCollection, builderSlotVariable};
    command.slotNames = {QStringLiteral("Clients"), QStringLiteral("Amount")};
    command.slotValues = {clientAlias, amount};
    command.collections = {QStringLiteral("Clients")};
    command.collectionValues = {clientAlias};
    command.fields = {QStringLiteral("Amount")};
    command.values = {amount};
    return command;
}

CollectionRecord record(const QString& collection, const QString& alias, const QString& name,
                        const QMap<QString, QString>& values, const QStringList& files = {})
{
    CollectionRecord r;
    r.collection = collection;
    r.alias = alias;
    r.name = name;
    r.values = values;
    r.files = files;
    return r;
}

} // namespace

Q_DECLARE_METATYPE(QList<tavo::StyledRun>)

class TestTemplateRender : public QObject
{
    Q_OBJECT

private slots:
    void renderLocal_data();
    void renderLocal();
    void renderAttributed_data();
    void renderAttributed();
    void htmlPage_data();
    void htmlPage();
    void htmlTemplateValuesEscaped();
    void linesPerPage_data();
    void linesPerPage();
    void outputFileName_data();
    void outputFileName();
    void templateTokens_data();
    void templateTokens();
    void limitLines_data();
    void limitLines();
    void collectionValue();
    void editorValueMap();
    void renderInput_data();
    void renderInput();
};

void TestTemplateRender::renderLocal_data()
{
    QTest::addColumn<QString>("templateText");
    QTest::addColumn<QStringList>("values");
    QTest::addColumn<QString>("details");
    QTest::addColumn<QString>("context");
    QTest::addColumn<QString>("expected");

    const QStringList amount{QStringLiteral("Amount=100")};
    QTest::newRow("a token in capitals takes the value of its key")
        << QStringLiteral("Due: {{AMOUNT}}") << amount << QString() << QString() << QStringLiteral("Due: 100");
    QTest::newRow("a token with blanks meets its key")
        << QStringLiteral("From {{Start Date}} on") << QStringList{QStringLiteral("startdate=May 1")} << QString()
        << QString() << QStringLiteral("From May 1 on");
    QTest::newRow("a value's name with blanks meets its token")
        << QStringLiteral("{{startdate}}") << QStringList{QStringLiteral("Start Date=May 1")} << QString() << QString()
        << QStringLiteral("May 1");
    QTest::newRow("an unknown token stays") << QStringLiteral("{{unknown}} {{amount}}") << amount << QString()
                                            << QString() << QStringLiteral("{{unknown}} 100");
    QTest::newRow("empty details leave an empty line")
        << QStringLiteral("A\n{{details}}\nB") << QStringList() << QString() << QString() << QStringLiteral("A\n\nB");
    QTest::newRow("details and collections")
        << QStringLiteral("{{Details}} / {{COLLECTIONS}}") << QStringList() << QStringLiteral("Pay soon")
        << QStringLiteral("Clients record acme:") << QStringLiteral("Pay soon / Clients record acme:");
    QTest::newRow("details beat a value of the same key")
        << QStringLiteral("{{details}}") << QStringList{QStringLiteral("Details=typed")} << QStringLiteral("fixed")
        << QString() << QStringLiteral("fixed");
    QTest::newRow("a value holding a token is not expanded")
        << QStringLiteral("{{a}} {{b}}") << QStringList{QStringLiteral("a={{b}}"), QStringLiteral("b=B")} << QString()
        << QString() << QStringLiteral("{{b}} B");
    QTest::newRow("a formula's result beats the typed value")
        << QStringLiteral("{{GST}}") << QStringList{QStringLiteral("GST=50"), QStringLiteral("gst=180.00")} << QString()
        << QString() << QStringLiteral("180.00");
    QTest::newRow("live date on the pinned clock")
        << QStringLiteral("Invoice date: {{date}}") << QStringList() << QString() << QString()
        << QStringLiteral("Invoice date: January 5, 2025");
    QTest::newRow("a variable named Date beats the live date")
        << QStringLiteral("{{date}}") << QStringList{QStringLiteral("Date=tomorrow")} << QString() << QString()
        << QStringLiteral("tomorrow");
    QTest::newRow("empty and unclosed tokens stay") << QStringLiteral("{{}} {{amount} {{amount") << amount << QString()
                                                    << QString() << QStringLiteral("{{}} {{amount} {{amount");
    QTest::newRow("a name runs to the first closing braces")
        << QStringLiteral("{{amount {{}} y}}") << amount << QString() << QString() << QStringLiteral("100 y}}");
    QTest::newRow("an extra brace belongs to the name")
        << QStringLiteral("{{{amount}}") << amount << QString() << QString() << QStringLiteral("100");
    QTest::newRow("every occurrence") << QStringLiteral(u"\u20B9{{amount}} and \u20B9{{Amount}}") << amount << QString()
                                      << QString() << QStringLiteral(u"\u20B9100 and \u20B9100");
    QTest::newRow("a lone surrogate does not stop the tokens")
        << (QStringLiteral("{{amount}}") + QChar(0xD800) + QStringLiteral("{{amount}}")) << amount << QString()
        << QString() << (QStringLiteral("100") + QChar(0xD800) + QStringLiteral("100"));
}

void TestTemplateRender::renderLocal()
{
    QFETCH(QString, templateText);
    QFETCH(QStringList, values);
    QFETCH(QString, details);
    QFETCH(QString, context);
    QFETCH(QString, expected);
    QCOMPARE(renderLocalTemplate(templateText, details, context, valuesOf(values), pinnedClock()), expected);
    // The styled renderer fills the same text.
    const StyledText rich = styled({{templateText, RunStyle()}});
    QCOMPARE(renderAttributedTemplate(rich, details, context, valuesOf(values), pinnedClock()).plainText(), expected);
}

void TestTemplateRender::renderAttributed_data()
{
    QTest::addColumn<QList<StyledRun>>("runs");
    QTest::addColumn<QList<StyledRun>>("expected");

    QTest::newRow("a bold token gives a bold value") << QList<StyledRun>{{QStringLiteral("Total: "), RunStyle()},
                                                                         {QStringLiteral("{{amount}}"), boldStyle()},
                                                                         {QStringLiteral(" due"), italicStyle()}}
                                                     << QList<StyledRun>{{QStringLiteral("Total: "), RunStyle()},
                                                                         {QStringLiteral("100"), boldStyle()},
                                                                         {QStringLiteral(" due"), italicStyle()}};
    QTest::newRow("a token across runs takes its first character's style")
        << QList<StyledRun>{{QStringLiteral("A {{am"), italicStyle()}, {QStringLiteral("ount}} B"), boldStyle()}}
        << QList<StyledRun>{{QStringLiteral("A 100"), italicStyle()}, {QStringLiteral(" B"), boldStyle()}};
    QTest::newRow("an unfilled token keeps its styles")
        << QList<StyledRun>{{QStringLiteral("{{no"), italicStyle()}, {QStringLiteral("pe}}"), boldStyle()}}
        << QList<StyledRun>{{QStringLiteral("{{no"), italicStyle()}, {QStringLiteral("pe}}"), boldStyle()}};
    QTest::newRow("the live date takes the token's style")
        << QList<StyledRun>{{QStringLiteral("{{date}}"), boldStyle()}}
        << QList<StyledRun>{{QStringLiteral("January 5, 2025"), boldStyle()}};
    QTest::newRow("an empty value leaves the text around it")
        << QList<StyledRun>{{QStringLiteral("x"), RunStyle()},
                            {QStringLiteral("{{details}}"), boldStyle()},
                            {QStringLiteral("y"), RunStyle()}}
        << QList<StyledRun>{{QStringLiteral("xy"), RunStyle()}};
}

void TestTemplateRender::renderAttributed()
{
    QFETCH(QList<StyledRun>, runs);
    QFETCH(QList<StyledRun>, expected);
    StyledText input = styled(runs);
    input.defaultFamily = QStringLiteral("DejaVu Sans");
    const StyledText result =
        renderAttributedTemplate(input, QString(), QString(), valuesOf({QStringLiteral("Amount=100")}), pinnedClock());
    QCOMPARE(result.runs, expected);
    QCOMPARE(result.defaultFamily, input.defaultFamily);
}

void TestTemplateRender::htmlPage_data()
{
    QTest::addColumn<QString>("content");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("style");
    QTest::addColumn<QString>("expected");

    const QString head =
        QStringLiteral("<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
                       "content=\"width=device-width,initial-scale=1\"><title>");
    const QString style = QStringLiteral(
        "</title><style>body{font:16px/1.65 -apple-system,BlinkMacSystemFont,sans-serif;color:#242033;margin:0;"
        "background:#f7f4ff}.page{max-width:900px;margin:40px auto;padding:40px;background:#fff;border-radius:20px;"
        "box-shadow:0 12px 40px #28135a18}h1{color:");
    const QString body = QStringLiteral(
        "}pre{white-space:pre-wrap;font:inherit}@media(max-width:650px){.page{margin:12px;padding:20px}}</style>"
        "</head><body><main class=\"page\"><h1>");
    QTest::newRow("bill: escaped title in both places")
        << QStringLiteral("A & B <b>\n\"quoted\"") << QStringLiteral("Bill <1>") << QStringLiteral("Bill")
        << (head + QStringLiteral("Bill &lt;1&gt;") + style + QStringLiteral("#6828d9") + body +
            QStringLiteral("Bill &lt;1&gt;</h1><pre>A &amp; B &lt;b&gt;\n\"quoted\"</pre></main></body></html>"));
    QTest::newRow("other styles take the darker accent")
        << QStringLiteral(u"\u20B9 5") << QStringLiteral("Trip") << QStringLiteral("Modern")
        << (head + QStringLiteral("Trip") + style + QStringLiteral("#5421a8") + body +
            QStringLiteral(u"Trip</h1><pre>\u20B9 5</pre></main></body></html>"));
    QTest::newRow("quotation is a bill's colour")
        << QString() << QString() << QStringLiteral("Quotation")
        << (head + style + QStringLiteral("#6828d9") + body + QStringLiteral("</h1><pre></pre></main></body></html>"));
    QTest::newRow("a full document passes unchanged, even for a bill")
        << QStringLiteral("  <!DOCTYPE html><p>a & b</p>") << QStringLiteral("Bill") << QStringLiteral("Bill")
        << QStringLiteral("  <!DOCTYPE html><p>a & b</p>");
    QTest::newRow("an html element also counts")
        << QStringLiteral("\n<HTML><body>x</body></HTML>") << QStringLiteral("T") << QStringLiteral("Bill")
        << QStringLiteral("\n<HTML><body>x</body></HTML>");
}

void TestTemplateRender::htmlPage()
{
    QFETCH(QString, content);
    QFETCH(QString, title);
    QFETCH(QString, style);
    QTEST(makeBuilderStandaloneHTML(content, title, builderHtmlAccent(style)), "expected");
}

void TestTemplateRender::htmlTemplateValuesEscaped()
{
    const QString page = QStringLiteral("<html><body title=\"{{name}}\">{{name}}</body></html>");
    QVERIFY(isFullHtmlDocument(page));
    QCOMPARE(renderLocalTemplate(page, QString(), QString(), valuesOf({QStringLiteral("Name=<b>\"A&B\"")}), {},
                                 TemplateValueEscaping::Html),
             QStringLiteral("<html><body title=\"&lt;b&gt;&quot;A&amp;B&quot;\">&lt;b&gt;&quot;A&amp;B&quot;</body>"
                            "</html>"));
}

void TestTemplateRender::linesPerPage_data()
{
    QTest::addColumn<double>("fontSize");
    QTest::addColumn<int>("lines");
    QTest::newRow("11 pt: 600 / 17.05") << 11.0 << 35;
    QTest::newRow("8 pt: the line is at least 14") << 8.0 << 42;
    QTest::newRow("400 pt: never fewer than one") << 400.0 << 1;
    QTest::newRow("0 pt reads as the smallest line") << 0.0 << 42;
    QTest::newRow("24 pt: 600 / 37.2") << 24.0 << 16;
    QTest::newRow("not a number gives one") << qQNaN() << 1;
}

void TestTemplateRender::linesPerPage()
{
    QFETCH(double, fontSize);
    QTEST(pdfLinesPerPage(fontSize), "lines");
}

void TestTemplateRender::outputFileName_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("extension");
    QTest::addColumn<QString>("expected");
    QTest::newRow("plain key") << QStringLiteral("inv-acme-100") << QStringLiteral("pdf")
                               << QStringLiteral("inv-acme-100-6f1b4c2a-9d3e-4b5f-8a7c-0d1e2f3a4b5c.pdf");
    QTest::newRow("cleaned and cut at 20")
        << QStringLiteral(u"Inv-Acme Ltd/../\u20B9100-extra_words") << QStringLiteral("HTML")
        << QStringLiteral("inv-acme-ltd-100-ext-6f1b4c2a-9d3e-4b5f-8a7c-0d1e2f3a4b5c.html");
    QTest::newRow("a path in the key makes no path")
        << QStringLiteral("../../etc/passwd") << QStringLiteral("pdf")
        << QStringLiteral("-etc-passwd-6f1b4c2a-9d3e-4b5f-8a7c-0d1e2f3a4b5c.pdf");
}

void TestTemplateRender::outputFileName()
{
    QFETCH(QString, key);
    QFETCH(QString, extension);
    QTEST(builderOutputFileName(key, extension, fixedId), "expected");
}

void TestTemplateRender::templateTokens_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("invalid");
    QTest::addColumn<QString>("restricted");

    QTest::newRow("allowed, live and unknown tokens")
        << QStringLiteral("{{Amount}} {{GST}} {{collection1}} {{date}} {{worldclock:tokyo}} {{foo}} {{foo}} {{bar}}")
        << QStringList{QStringLiteral("{{foo}}"), QStringLiteral("{{bar}}")}
        << QStringLiteral("{{Amount}} {{GST}} {{collection1}} {{date}} {{worldclock:tokyo}} [foo] [foo] [bar]");
    QTest::newRow("bracket placeholders of a variable become tokens")
        << QStringLiteral("Due [Start Date], [unknown], {{collection2}}")
        << QStringList{QStringLiteral("{{collection2}}")}
        << QStringLiteral("Due {{startdate}}, [unknown], [collection2]");
    QTest::newRow("details and collections are allowed")
        << QStringLiteral("{{details}}{{Collections}}") << QStringList()
        << QStringLiteral("{{details}}{{Collections}}");
}

void TestTemplateRender::templateTokens()
{
    QFETCH(QString, text);
    const QStringList allowed = allowedTemplateKeys({QStringLiteral("Amount"), QStringLiteral("Start Date")},
                                                    QStringLiteral("GST = Amount * 18%"), 1);
    QTEST(invalidTemplateTokens(text, allowed), "invalid");
    QTEST(restrictTemplateTokens(text, allowed), "restricted");
    QVERIFY(invalidTemplateTokens(restrictTemplateTokens(text, allowed), allowed).isEmpty());
}

void TestTemplateRender::limitLines_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("expected");
    QTest::newRow("blank lines dropped, lines trimmed")
        << QStringLiteral("  a \n\n b\n   \nc") << 6 << QStringLiteral("a\nb\nc");
    QTest::newRow("lines beyond the count join the last")
        << QStringLiteral("a\nb\nc\nd") << 2 << QStringLiteral("a\nb c d");
    QTest::newRow("nothing for no lines") << QStringLiteral("a") << 0 << QString();
}

void TestTemplateRender::limitLines()
{
    QFETCH(QString, text);
    QFETCH(int, count);
    QTEST(limitTemplateLines(text, count), "expected");
}

void TestTemplateRender::collectionValue()
{
    const CollectionRecord acme =
        record(QStringLiteral("Clients"), QStringLiteral("acme-ltd"), QStringLiteral("Acme Ltd"),
               {{QStringLiteral("Phone"), QStringLiteral("555")},
                {QStringLiteral("Address"), QStringLiteral("1 Road")},
                {QStringLiteral("Email"), QString()}},
               {QStringLiteral("/p/Attachments/logo.png"), QStringLiteral("/p/Attachments/card.pdf")});
    QCOMPARE(resolvedCollectionValue(acme),
             QStringLiteral("Acme Ltd: 1 Road, 555 [attached media: logo.png, card.pdf]"));
    Clip clip;
    clip.key = QStringLiteral("/acme");
    clip.name = QStringLiteral("Acme");
    clip.text = QStringLiteral("Acme, 1 Road");
    QCOMPARE(resolvedCollectionValue(clip), QStringLiteral("Acme: Acme, 1 Road"));
}

void TestTemplateRender::editorValueMap()
{
    const QStringList order{QStringLiteral("Variable: Amount"), QStringLiteral("Collection: Vendors"),
                            QStringLiteral("Action: inv"), QStringLiteral("Collection: Clients"),
                            QStringLiteral("Collection: Products")};
    const BuilderValues values =
        templateValueMap(valuesOf({QStringLiteral("Amount=200")}), QStringLiteral("GST = Amount * 18%"), order,
                         {{QStringLiteral("clients"), QStringLiteral("Acme: 555")},
                          {QStringLiteral("Vendors"), QStringLiteral("Bolt: 1 Road")}});
    QCOMPARE(values, valuesOf({QStringLiteral("Amount=200"), QStringLiteral("gst=36.00"),
                               QStringLiteral("collection1=Bolt: 1 Road"), QStringLiteral("collection2=Acme: 555")}));
}

void TestTemplateRender::renderInput_data()
{
    QTest::addColumn<QString>("alias");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("rendered");

    const QString templateText = QStringLiteral("{{collection1}} | {{phone}} | {{total}}\n{{collections}}");
    QTest::newRow("a record, by alias in any case")
        << QStringLiteral("ACME-Ltd") << QString()
        << QStringLiteral("Acme Ltd: 555 | 555 | 1180.00\nClients record ACME-Ltd:\nPhone: 555\n\nCalculated values:\n"
                          "GST: 180.00\nTotal: 1180.00");
    QTest::newRow("a shortcut of the collection")
        << QStringLiteral("beta") << QString()
        << QStringLiteral("Beta: Beta Inc | {{phone}} | 1180.00\nClients record beta:\nBeta Inc\n\nCalculated values:\n"
                          "GST: 180.00\nTotal: 1180.00");
    QTest::newRow("two records share the alias")
        << QStringLiteral("twin")
        << QStringLiteral(u"The alias \u2018twin\u2019 matches multiple records in Clients. "
                          u"Rename an alias so each record is unique, then try again.")
        << QString();
    QTest::newRow("two shortcuts share the key")
        << QStringLiteral("dup")
        << QStringLiteral(u"The alias \u2018dup\u2019 is ambiguous in Clients. "
                          u"Choose a unique record alias.")
        << QString();
    QTest::newRow("no such record") << QStringLiteral("nobody")
                                    << QStringLiteral(u"No record with alias \u2018nobody\u2019 was found in Clients. "
                                                      u"Add or select the exact record, then try again.")
                                    << QString();
    QTest::newRow("a shortcut of another collection does not count")
        << QStringLiteral("elsewhere")
        << QStringLiteral(u"No record with alias \u2018elsewhere\u2019 was found in "
                          u"Clients. Add or select the exact record, then try again.")
        << QString();
}

void TestTemplateRender::renderInput()
{
    QFETCH(QString, alias);
    QFETCH(QString, error);
    const QList<CollectionRecord> records{
        record(QStringLiteral("Clients"), QStringLiteral("acme-ltd"), QStringLiteral("Acme Ltd"),
               {{QStringLiteral("Phone"), QStringLiteral("555")}}),
        record(QStringLiteral("clients"), QStringLiteral("twin"), QStringLiteral("Twin A"), {}),
        record(QStringLiteral("Clients"), QStringLiteral("TWIN"), QStringLiteral("Twin B"), {}),
        record(QStringLiteral("Vendors"), QStringLiteral("elsewhere"), QStringLiteral("Else"), {}),
    };
    const auto clip = [](const QString& key, const QString& name, const QString& group) {
        Clip c;
        c.key = key;
        c.name = name;
        c.text = name + QStringLiteral(" Inc");
        c.group = group;
        return c;
    };
    const QList<Clip> clips{clip(QStringLiteral("/beta"), QStringLiteral("Beta"), QStringLiteral("Clients")),
                            clip(QStringLiteral("/dup"), QStringLiteral("Dup 1"), QStringLiteral("Clients")),
                            clip(QStringLiteral("\\dup/"), QStringLiteral("Dup 2"), QStringLiteral("clients")),
                            clip(QStringLiteral("/elsewhere"), QStringLiteral("Else"), QStringLiteral("Personal"))};
    const Result<BuilderRenderInput> input =
        resolveBuilderRenderInput(invoiceCommand(alias, QStringLiteral("1000")), clips, records,
                                  QStringLiteral("GST = Amount * 18%\nTotal = Amount + GST"));
    QCOMPARE(input.ok(), error.isEmpty());
    if (!input.ok()) {
        QCOMPARE(input.error().description, error);
        return;
    }
    QCOMPARE(input->variableLines, QStringLiteral("Amount: 1000"));
    QTEST(renderLocalTemplate(QStringLiteral("{{collection1}} | {{phone}} | {{total}}\n{{collections}}"), QString(),
                              input->context, input->values),
          "rendered");
}

QTEST_GUILESS_MAIN(TestTemplateRender)
#include "tst_template_render.moc"
