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
