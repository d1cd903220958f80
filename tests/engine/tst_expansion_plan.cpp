#include "builder/builder_app.h"
#include "engine/expansion_plan.h"
#include "store/defaults.h"

#include <QJsonArray>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using Kind = ExpansionPlan::Kind;

Q_DECLARE_METATYPE(tavo::ExpansionPlan::Kind)

namespace {

Clip clip(const QString& key, const QString& text, const QString& group = QStringLiteral("Personal"))
{
    Clip c;
    c.key = key;
    c.name = key.mid(1);
    c.text = text;
    c.group = group;
    return c;
}

CollectionRecord record(const QString& alias, const QString& collection)
{
    CollectionRecord r;
    r.id = QStringLiteral("R-") + alias;
    r.collection = collection;
    r.name = QStringLiteral("Acme Ltd");
    r.alias = alias;
    r.values = {{QStringLiteral("Phone"), QStringLiteral("555")},
                {QStringLiteral("Email"), QStringLiteral("a@acme.test")}};
    return r;
}

ExpansionLibrary library()
{
    ExpansionLibrary lib;
    Clip app = clip(QStringLiteral("/calc.app"), QString(), QStringLiteral("Applications"));
    app.appBundleIdentifier = QStringLiteral("org.gnome.Calculator");
    Clip portrait = clip(QStringLiteral("/ada"), QStringLiteral("Ada"), QStringLiteral("Media files"));
    portrait.defaultMediaArticle = QStringLiteral("Ada Lovelace");
    Clip picture = clip(QStringLiteral("/logo"), QStringLiteral("Our logo"), QStringLiteral("Media files"));
    picture.files = {QStringLiteral("/tmp/logo.png")};
    Clip caption = clip(QStringLiteral("/chart"), QStringLiteral("Q3 chart"), QStringLiteral("Work"));
    caption.files = {QStringLiteral("/tmp/chart.png")};
    Clip direct = clip(QStringLiteral("/sig"), QStringLiteral("Best"), QStringLiteral("Work"));
    direct.files = {QStringLiteral("/tmp/sig.png")};
    direct.directMediaPaste = true;
    lib.clips = {clip(QStringLiteral("/ty"), QStringLiteral("Thank you!")),
                 clip(QStringLiteral("/1+1"), QStringLiteral("never")),
                 clip(QStringLiteral("/a1"), QStringLiteral("one")),
                 clip(QStringLiteral("/a2"), QStringLiteral("two")),
                 clip(QStringLiteral("/a1&2"), QStringLiteral("exact key")),
                 clip(QStringLiteral("/note-b"), QStringLiteral("styled key")),
                 clip(QStringLiteral("/paste"), QStringLiteral("a key named paste")),
                 clip(QStringLiteral("/img"), QStringLiteral("a key named img")),
                 clip(QStringLiteral("/acme"), QStringLiteral("the clip, not the record")),
                 clip(QStringLiteral("/secret"), QStringLiteral("hidden"), QStringLiteral("Private")),
                 clip(QStringLiteral("/empty"), QString()),
                 app,
                 portrait,
                 picture,
                 caption,
                 direct};
    lib.records = {record(QStringLiteral("acme"), QStringLiteral("Customers")),
                   record(QStringLiteral("twin"), QStringLiteral("Customers")),
                   record(QStringLiteral("twin"), QStringLiteral("Vendors")),
                   record(QStringLiteral("hid"), QStringLiteral("Private"))};
    lib.hiddenCollections = {QStringLiteral("private")};
    return lib;
}

} // namespace

class TestExpansionPlan : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void decisions_data();
    void decisions();
    void hiddenCollectionsCountWhenShown();
    void recordBecomesText();
    void mediaDropsTheEndingKey();
    void builderCommands_data();
    void builderCommands();
    void withoutBuilderAppsNothingIsACommand();
    void hiddenRecordsAreNoAliases();

private:
    // An app "Invoice" of prefix "inv": a Clients record, then an amount.
    ExpansionLibrary builderLibrary(bool showHidden = false) const;

    QTemporaryDir m_dir;
    std::unique_ptr<Defaults> m_defaults;
};

void TestExpansionPlan::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_defaults = std::make_unique<Defaults>(m_dir.filePath(QStringLiteral("defaults.json")));
    const QString app = QStringLiteral("Invoice");
    writeBuilderAppNames(*m_defaults, {app});
    m_defaults->setValues({
        {builderKey(QStringLiteral("Prefix"), app), QStringLiteral("inv")},
        {builderKey(QStringLiteral("Collections"), app), QStringLiteral("Clients")},
        {builderKey(QStringLiteral("Variables"), app), QStringLiteral("amount")},
        {builderKey(QStringLiteral("FormulaOrder"), app),
         QJsonArray{QStringLiteral("Collection: Clients"), QStringLiteral("Variable: amount")}},
    });
}

ExpansionLibrary TestExpansionPlan::builderLibrary(bool showHidden) const
{
    ExpansionLibrary lib = library();
    lib.clips.append(clip(QStringLiteral("/inv"), QStringLiteral("a key named inv")));
    lib.records.append(record(QStringLiteral("acme-ltd"), QStringLiteral("Clients")));
    lib.records.append(record(QStringLiteral("shy"), QStringLiteral("Private")));
    lib.showHidden = showHidden;
    lib.builder = builderSnapshotFor(*m_defaults, lib);
    return lib;
}

void TestExpansionPlan::decisions_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QString>("text"); // pasted text, inline command, or the clip's key

    const auto row = [](const char* name, const char* trigger, const char* suffix, Kind kind, const char* text) {
        QTest::newRow(name) << QString::fromUtf8(trigger) << QString::fromUtf8(suffix) << kind
                            << QString::fromUtf8(text);
    };
    row("a key, the space pasted back", "\\ty", " ", Kind::Paste, "Thank you! ");
    row("keys compare ignoring case", "/TY", ".", Kind::Paste, "Thank you!.");
    row("the calculator comes before keys", "\\1+1", " ", Kind::Calculation, "2 ");
    row("a batch comes before an exact key", "\\a1&2", " ", Kind::Batch, "");
    row("a batch that finds nothing falls through to keys", "\\zz1&2", " ", Kind::NoMatch, "");
    row("a style suffix is peeled before matching", "\\ty-b", " ", Kind::Paste, "Thank you! ");
    row("a key that ends like a style cannot be typed", "\\note-b", " ", Kind::NoMatch, "");
    row("\\P is a command in either case", "\\P-draft", "\n", Kind::InlineCommand, "\\P-draft");
    row("/p is no command", "/p", " ", Kind::NoMatch, "");
    row("\\paste is a command", "\\Paste", " ", Kind::InlineCommand, "\\Paste");
    row("a tab skips the commands", "\\paste", "\t", Kind::Paste, "a key named paste\t");
    row("\\img needs a backslash", "/img", " ", Kind::Paste, "a key named img ");
    row("\\img-prompt is a command", "\\img-a cat", " ", Kind::InlineCommand, "\\img-a cat");
    row("a tone rewrite is a command", "\\paste.F", "\r", Kind::InlineCommand, "\\paste.F");
    row("a tone needs the backslash", "/r", " ", Kind::NoMatch, "");
    row("a lone record wins over a clip", "\\acme", " ", Kind::Paste, "Acme Ltd\nEmail: a@acme.test\nPhone: 555 ");
    row("two records of one alias stand for nothing", "\\twin", " ", Kind::NoMatch, "");
    row("a hidden collection's shortcut is not found", "\\secret", " ", Kind::NoMatch, "");
    row("a hidden collection's record is not found", "\\hid", " ", Kind::NoMatch, "");
    row("an application", "\\calc.app", " ", Kind::Launch, "/calc.app");
    row("a portrait still to fetch", "\\ada", " ", Kind::DefaultMedia, "/ada");
    row("neither text nor files", "\\empty", " ", Kind::Nothing, "/empty");
    row("text with a picture outside media collections pastes text", "\\chart", " ", Kind::Paste, "Q3 chart ");
}

void TestExpansionPlan::decisions()
{
    QFETCH(QString, trigger);
    QFETCH(QString, suffix);
    QFETCH(Kind, kind);
    QFETCH(QString, text);
    // Every decision comes out the same whether the library is scanned or looked up in its index.
    ExpansionLibrary indexed = library();
    indexed.index = ExpansionIndex::build(indexed.clips, indexed.records);
    for (const ExpansionLibrary& lib : {library(), indexed}) {
        const ExpansionPlan plan = planExpansion(trigger, suffix, lib);
        QCOMPARE(plan.kind, kind);
        switch (kind) {
        case Kind::Paste:
        case Kind::Calculation:
            QVERIFY(plan.paste.includeText);
            QCOMPARE(plan.paste.clip.text, text);
            break;
        case Kind::InlineCommand:
            QCOMPARE(plan.command, text);
            break;
        case Kind::Launch:
        case Kind::DefaultMedia:
        case Kind::Nothing:
            QCOMPARE(plan.clip.key, text);
            break;
        case Kind::Batch:
            QCOMPARE(plan.batch.size(), 2);
            QCOMPARE(plan.batch.first().key, QStringLiteral("/a1"));
            break;
        default:
            break;
        }
    }
}

void TestExpansionPlan::hiddenCollectionsCountWhenShown()
{
    ExpansionLibrary lib = library();
    lib.showHidden = true;
    QCOMPARE(planExpansion(QStringLiteral("\\secret"), QStringLiteral(" "), lib).kind, Kind::Paste);
    QCOMPARE(planExpansion(QStringLiteral("\\hid"), QStringLiteral(" "), lib).kind, Kind::Paste);
}

void TestExpansionPlan::recordBecomesText()
{
    CollectionRecord picture = record(QStringLiteral("pic"), QStringLiteral("Products"));
    picture.values.clear();
    picture.files = {QStringLiteral("/tmp/p.png")};
    const Clip clip = clipForRecord(picture);
    QCOMPARE(clip.key, QStringLiteral("/pic"));
    QCOMPARE(clip.text, QStringLiteral("Acme Ltd"));
    QCOMPARE(clip.group, QStringLiteral("Products"));
    QVERIFY(clip.directMediaPaste.value_or(false)); // no values, a file: the file is what is meant
}

void TestExpansionPlan::mediaDropsTheEndingKey()
{
    for (const char* key : {"\\logo", "\\sig"}) {
        const ExpansionPlan plan = planExpansion(QString::fromLatin1(key), QStringLiteral(" "), library());
        QCOMPARE(plan.kind, Kind::Paste);
        QVERIFY(plan.paste.includeMedia);
        QVERIFY(!plan.paste.includeText);
        QVERIFY(!plan.paste.clip.text.endsWith(u' '));
    }
}

void TestExpansionPlan::builderCommands_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<bool>("generates");
    QTest::addColumn<QString>("text"); // the command's key, or what is pasted

    const auto row = [](const char* name, const char* trigger, const char* suffix, Kind kind, bool generates,
                        const char* text) {
        QTest::newRow(name) << QString::fromUtf8(trigger) << QString::fromUtf8(suffix) << kind << generates
                            << QString::fromUtf8(text);
    };
    row("a complete command is made", "\\inv-acme-ltd-100", " ", Kind::BuilderCommand, true, "inv-acme-ltd-100");
    row("a return ends one too", "\\INV-ACME-LTD-100", "\n", Kind::BuilderCommand, true, "inv-ACME-LTD-100");
    row("a format word is no value", "/inv-acme-ltd-100-img", "\r", Kind::BuilderCommand, true, "inv-acme-ltd-100");
    row("a missing value shows the card", "\\inv-acme", " ", Kind::BuilderCommand, false, "inv-acme");
    row("the bare prefix shows the card", "\\inv", " ", Kind::BuilderCommand, false, "inv");
    row("a quoted value fills one slot", "\\inv-\"a b\"-5", " ", Kind::BuilderCommand, true, "inv-a b-5");
    row("a tab shows the card of a complete command", "\\inv-acme-ltd-100", "\t", Kind::BuilderCommand, false,
        "inv-acme-ltd-100");
    row("punctuation shows the card", "\\inv-acme", ";", Kind::BuilderCommand, false, "inv-acme");
    row("after a tab a shortcut of the prefix comes first", "\\inv", "\t", Kind::Paste, false, "a key named inv\t");
    row("surplus tokens make no command: the key goes back", "\\inv-x-1-2-3", " ", Kind::NoMatch, false, "");
    row("the prefix needs a hyphen behind it", "\\invoice-x", " ", Kind::NoMatch, false, "");
    row("inline commands come first", "\\paste", " ", Kind::InlineCommand, false, "");
    row("shortcuts still expand", "\\ty", " ", Kind::Paste, false, "Thank you! ");
}

void TestExpansionPlan::builderCommands()
{
    QFETCH(QString, trigger);
    QFETCH(QString, suffix);
    QFETCH(Kind, kind);
    QFETCH(bool, generates);
    QFETCH(QString, text);
    const ExpansionPlan plan = planExpansion(trigger, suffix, builderLibrary());
    QCOMPARE(plan.kind, kind);
    QCOMPARE(plan.givesEndingKeyBack(), kind == Kind::NoMatch);
    if (kind == Kind::BuilderCommand) {
        QCOMPARE(plan.generates, generates);
        QCOMPARE(plan.builder.app, QStringLiteral("Invoice"));
        QCOMPARE(plan.builder.key, text);
        QVERIFY(!generates || plan.builder.isComplete());
        QCOMPARE(plan.command, trigger.trimmed()); // what the output is made from, as typed
    } else if (kind == Kind::Paste) {
        QCOMPARE(plan.paste.clip.text, text);
    }
}

void TestExpansionPlan::withoutBuilderAppsNothingIsACommand()
{
    ExpansionLibrary lib = builderLibrary();
    lib.builder.reset();
    QCOMPARE(planExpansion(QStringLiteral("\\inv-acme-ltd-100"), QStringLiteral(" "), lib).kind, Kind::NoMatch);
    QCOMPARE(planExpansion(QStringLiteral("\\inv"), QStringLiteral(" "), lib).kind, Kind::Paste);
}

void TestExpansionPlan::hiddenRecordsAreNoAliases()
{
    // A record of a hidden collection is no alias while hidden collections are not shown: its
    // two words are then two values, one too many for the app's two slots.
    const QString app = QStringLiteral("Invoice");
    m_defaults->setString(builderKey(QStringLiteral("Collections"), app), QStringLiteral("Private"));
    m_defaults->setStringList(builderKey(QStringLiteral("FormulaOrder"), app), {});
    const auto restore = qScopeGuard([&] {
        m_defaults->setString(builderKey(QStringLiteral("Collections"), app), QStringLiteral("Clients"));
        m_defaults->setStringList(builderKey(QStringLiteral("FormulaOrder"), app),
                                  {QStringLiteral("Collection: Clients"), QStringLiteral("Variable: amount")});
    });
    ExpansionLibrary hidden = builderLibrary(false);
    ExpansionLibrary shown = builderLibrary(true);
    hidden.records.last().alias = shown.records.last().alias = QStringLiteral("shy-co");
    hidden.builder = builderSnapshotFor(*m_defaults, hidden);
    shown.builder = builderSnapshotFor(*m_defaults, shown);
    const QString typed = QStringLiteral("\\inv-shy-co-7");
    QCOMPARE(planExpansion(typed, QStringLiteral(" "), hidden).kind, Kind::NoMatch);
    const ExpansionPlan plan = planExpansion(typed, QStringLiteral(" "), shown);
    QCOMPARE(plan.kind, Kind::BuilderCommand);
    QCOMPARE(plan.builder.slotValues, QStringList({QStringLiteral("shy-co"), QStringLiteral("7")}));
}

QTEST_GUILESS_MAIN(TestExpansionPlan)
#include "tst_expansion_plan.moc"
