#include "engine/expansion_plan.h"

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
    Clip site = clip(QStringLiteral("/docs.web"), QString(), QStringLiteral("Websites & URLs"));
    site.webURL = QStringLiteral("https://example.org");
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
                 site,
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
    void decisions_data();
    void decisions();
    void hiddenCollectionsCountWhenShown();
    void recordBecomesText();
    void mediaDropsTheEndingKey();
};

void TestExpansionPlan::decisions_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<QString>("suffix");
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QString>("text"); // pasted text, inline command, or the clip's key

    const QString space = QStringLiteral(" ");
    QTest::newRow("a key, the space pasted back") << "\\ty" << space << Kind::Paste << "Thank you! ";
    QTest::newRow("keys compare ignoring case") << "/TY"
                                                << "." << Kind::Paste << "Thank you!.";
    QTest::newRow("the calculator comes before keys") << "\\1+1" << space << Kind::Calculation << "2 ";
    QTest::newRow("a batch comes before an exact key") << "\\a1&2" << space << Kind::Batch << "";
    QTest::newRow("a batch that finds nothing falls through to keys") << "\\zz1&2" << space << Kind::NoMatch << "";
    QTest::newRow("a style suffix is peeled before matching") << "\\ty-b" << space << Kind::Paste << "Thank you! ";
    QTest::newRow("a key that ends like a style cannot be typed") << "\\note-b" << space << Kind::NoMatch << "";
    QTest::newRow("\\p is a command") << "\\p" << space << Kind::InlineCommand << "\\p";
    QTest::newRow("\\P is the same command") << "\\P-draft"
                                             << "\n"
                                             << Kind::InlineCommand << "\\P-draft";
    QTest::newRow("/p is no command") << "/p" << space << Kind::NoMatch << "";
    QTest::newRow("\\paste is a command") << "\\Paste" << space << Kind::InlineCommand << "\\Paste";
    QTest::newRow("a tab skips the commands") << "\\paste"
                                              << "\t" << Kind::Paste << "a key named paste\t";
    QTest::newRow("\\img needs a backslash") << "/img" << space << Kind::Paste << "a key named img ";
    QTest::newRow("\\img-prompt is a command") << "\\img-a cat" << space << Kind::InlineCommand << "\\img-a cat";
    QTest::newRow("a lone record wins over a clip")
        << "\\acme" << space << Kind::Paste << "Acme Ltd\nEmail: a@acme.test\nPhone: 555 ";
    QTest::newRow("two records of one alias stand for nothing") << "\\twin" << space << Kind::NoMatch << "";
    QTest::newRow("a hidden collection's shortcut is not found") << "\\secret" << space << Kind::NoMatch << "";
    QTest::newRow("a hidden collection's record is not found") << "\\hid" << space << Kind::NoMatch << "";
    QTest::newRow("a website") << "\\docs.web" << space << Kind::Website << "/docs.web";
    QTest::newRow("an application") << "\\calc.app" << space << Kind::Launch << "/calc.app";
    QTest::newRow("a portrait still to fetch") << "\\ada" << space << Kind::DefaultMedia << "/ada";
    QTest::newRow("neither text nor files") << "\\empty" << space << Kind::Nothing << "/empty";
    QTest::newRow("text with a picture outside media collections pastes text")
        << "\\chart" << space << Kind::Paste << "Q3 chart ";
    QTest::newRow("unknown") << "\\nothing" << space << Kind::NoMatch << "";
}

void TestExpansionPlan::decisions()
{
    QFETCH(QString, trigger);
    QFETCH(QString, suffix);
    QFETCH(Kind, kind);
    QFETCH(QString, text);
    const ExpansionPlan plan = planExpansion(trigger, suffix, library());
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
    case Kind::Website:
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

QTEST_GUILESS_MAIN(TestExpansionPlan)
#include "tst_expansion_plan.moc"
