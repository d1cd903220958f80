#include "browser/browser_records.h"
#include "browser/workspace_seal.h"
#include "language/json_stream.h"

#include <QTest>

using namespace tavo;
using namespace Qt::StringLiterals;

// The stored forms of the browser's records, and the seal of the private workspace.
class TestBrowserRecords : public QObject
{
    Q_OBJECT

private slots:
    void tabNeedsEveryKey_data();
    void tabNeedsEveryKey();
    void savedSiteFillsAbsentKeys_data();
    void savedSiteFillsAbsentKeys();
    void documentsRefuseWhatIsNotTheirs_data();
    void documentsRefuseWhatIsNotTheirs();
    void archiveRoundTripsExactly();
    void sealOpensOnlyWithItsKey_data();
    void sealOpensOnlyWithItsKey();
    void everyFlippedByteGivesNothing();
};

void TestBrowserRecords::tabNeedsEveryKey_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("decodes");
    QTest::newRow("all three") << R"({"id":"a","title":"T","url":"https://x/"})"_ba << true;
    QTest::newRow("unknown key skipped") << R"({"id":"a","title":"T","url":"u","zoom":[1,{"x":2}]})"_ba << true;
    QTest::newRow("no url") << R"({"id":"a","title":"T"})"_ba << false;
    QTest::newRow("no id") << R"({"title":"T","url":"u"})"_ba << false;
    QTest::newRow("title a number") << R"({"id":"a","title":3,"url":"u"})"_ba << false;
    QTest::newRow("url null") << R"({"id":"a","title":"T","url":null})"_ba << false;
}

void TestBrowserRecords::tabNeedsEveryKey()
{
    QFETCH(QByteArray, json);
    QFETCH(bool, decodes);
    JsonReader reader(json);
    QCOMPARE(readBrowserTab(reader).has_value(), decodes);
}

void TestBrowserRecords::savedSiteFillsAbsentKeys_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<QStringList>("tags");
    QTest::newRow("empty object gets every default")
        << "{}"_ba << u"Saved link"_s << builtInHomeLinkURL << u"Favorites"_s << QStringList();
    QTest::newRow("nulls count as absent") << R"({"title":null,"tags":null,"collection":null})"_ba << u"Saved link"_s
                                           << builtInHomeLinkURL << u"Favorites"_s << QStringList();
    QTest::newRow("given values kept") << R"({"title":"A","url":"https://a/","tags":["x","y"],"collection":"Work"})"_ba
                                       << u"A"_s << u"https://a/"_s << u"Work"_s << QStringList{u"x"_s, u"y"_s};
}

void TestBrowserRecords::savedSiteFillsAbsentKeys()
{
    QFETCH(QByteArray, json);
    JsonReader reader(json);
    const std::optional<TavoSavedSite> site = readSavedSite(reader);
    QVERIFY(site);
    QTEST(site->title, "title");
    QTEST(site->url, "url");
    QTEST(site->collection, "collection");
    QTEST(site->tags, "tags");
    QCOMPARE(site->id.size(), 36); // a fresh UUID when absent
}

void TestBrowserRecords::documentsRefuseWhatIsNotTheirs_data()
{
    QTest::addColumn<QByteArray>("json");
    QTest::addColumn<bool>("persisted");
    QTest::addColumn<bool>("archive");
    QTest::addColumn<bool>("collections");
    const QByteArray tabs = R"("tabs":[{"id":"a","title":"T","url":"u"}],"saved":[{}],"selectedID":"a")"_ba;
    const QByteArray rest =
        R"("collections":[{"id":"c","title":"F","createdAt":1.5}],"tabGroups":{"a":"X"},"collapsedTabGroups":["X"],"splitEnabled":true,"secondaryID":"")"_ba;
    QTest::newRow("persisted form") << "{" + tabs + "}" << true << false << false;
    QTest::newRow("archive form is also a persisted form") << "{" + tabs + "," + rest + "}" << true << true << false;
    QTest::newRow("archive without secondaryID")
        << "{" + tabs + "," + rest.left(rest.lastIndexOf(',')) + "}" << true << false << false;
    QTest::newRow("trailing garbage") << "{" + tabs + "} x" << false << false << false;
    QTest::newRow("persisted without selectedID") << R"({"tabs":[],"saved":[]})"_ba << false << false << false;
    QTest::newRow("collection list") << R"([{"id":"c","title":"F","createdAt":817000000.25}])"_ba << false << false
                                     << true;
    QTest::newRow("collection without date") << R"([{"id":"c","title":"F"}])"_ba << false << false << false;
    QTest::newRow("collection date as text")
        << R"([{"id":"c","title":"F","createdAt":"1"}])"_ba << false << false << false;
}

void TestBrowserRecords::documentsRefuseWhatIsNotTheirs()
{
    QFETCH(QByteArray, json);
    QTEST(browserPersistedFromJson(json).has_value(), "persisted");
    QTEST(workspaceArchiveFromJson(json).has_value(), "archive");
    QTEST(browserCollectionsFromJson(json).has_value(), "collections");
}

void TestBrowserRecords::archiveRoundTripsExactly()
{
    BrowserWorkspaceArchive archive = BrowserWorkspaceArchive::empty();
    archive.tabs.append({u"t1"_s, u"Quote \" and \\ and é and \U0001F600"_s, u"https://a/?q=1&b=2"_s});
    archive.tabGroups = {{u"t1"_s, u"Work"_s}, {u"t0"_s, u"Ä"_s}};
    archive.collapsedTabGroups = {u"Work"_s};
    archive.splitEnabled = true;
    archive.secondaryID = u"t1"_s;
    archive.collections.append({u"c2"_s, u"Odd date"_s, 817320878.773});
    const QByteArray json = workspaceArchiveToJson(archive);
    const std::optional<BrowserWorkspaceArchive> back = workspaceArchiveFromJson(json);
    QVERIFY(back);
    QCOMPARE(*back, archive);
    // Written again, not one byte moves: the normal keys stay byte-identical across a mode.
    QCOMPARE(workspaceArchiveToJson(*back), json);
}

void TestBrowserRecords::sealOpensOnlyWithItsKey_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("archive") << workspaceArchiveToJson(BrowserWorkspaceArchive::empty());
    QTest::newRow("a megabyte") << QByteArray(1 << 20, 'x');
}

void TestBrowserRecords::sealOpensOnlyWithItsKey()
{
    QFETCH(QByteArray, plain);
    const QByteArray key = *makeWorkspaceKey();
    const std::optional<QByteArray> sealed = sealWorkspace(plain, key);
    QVERIFY(sealed);
    QCOMPARE(sealed->size(), plain.size() + workspaceNonceLength + workspaceTagLength);
    QCOMPARE(openWorkspace(*sealed, key), std::optional<QByteArray>(plain));
    // A fresh nonce each time: the same content never seals to the same bytes.
    QVERIFY(*sealWorkspace(plain, key) != *sealed);
    if (!plain.isEmpty()) {
        QVERIFY(!sealed->contains(plain.left(16)));
    }
    QVERIFY(!openWorkspace(*sealed, *makeWorkspaceKey()));
    QVERIFY(!openWorkspace(*sealed, key.left(31)));
    QVERIFY(!sealWorkspace(plain, key.left(16)));
    QVERIFY(!openWorkspace(sealed->left(workspaceNonceLength + workspaceTagLength - 1), key));
    QVERIFY(!openWorkspace(sealed->chopped(1), key));
}

void TestBrowserRecords::everyFlippedByteGivesNothing()
{
    const QByteArray plain = workspaceArchiveToJson(BrowserWorkspaceArchive::empty());
    const QByteArray key = *makeWorkspaceKey();
    const QByteArray sealed = *sealWorkspace(plain, key);
    for (qsizetype i = 0; i < sealed.size(); ++i) {
        for (const char mask : {'\x01', '\x80'}) {
            QByteArray damaged = sealed;
            damaged[i] = static_cast<char>(damaged[i] ^ mask);
            if (openWorkspace(damaged, key)) {
                QFAIL(qPrintable(u"byte %1 flipped still opened"_s.arg(i)));
            }
        }
    }
}

QTEST_GUILESS_MAIN(TestBrowserRecords)
#include "tst_browser_records.moc"
