#include "picker/picker_search.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

Clip clip(const QString& key, const QString& group, const QStringList& more = {})
{
    Clip made;
    made.key = key;
    made.name = key.mid(1);
    made.text = u"Text of "_s + key;
    made.group = group;
    if (!more.isEmpty()) {
        made.groups = more;
    }
    return made;
}

QStringList keysOf(const QList<Clip>& clips)
{
    QStringList keys;
    for (const Clip& each : clips) {
        keys << each.key;
    }
    return keys;
}

} // namespace

class TestPickerSearch : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void pagesOfFiveUntilTheEnd();
    void aCalculationIsOneRowAndNoScan();
    void hiddenCollections_data();
    void hiddenCollections();
    void twoQuickRestartsLeaveOneScan();
    void aBatchListsItsShortcutsInScanOrder();
    void recordsFollowShortcutsAndATwinHidesOne();
    void aStoreChangeMidScanSkipsNothing();
    void queries_data();
    void queries();

private:
    void finish(PickerSearch& search) { QTRY_VERIFY(!search.isLoading()); }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
};

void TestPickerSearch::init()
{
    m_db.reset();
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"defaults.json"_s));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(u"Tavo"_s));
    QList<Clip> clips;
    for (int i = 1; i <= 23; ++i) {
        clips << clip(u"/item%1"_s.arg(i), u"Personal"_s);
    }
    m_db->setClips(clips);
}

void TestPickerSearch::pagesOfFiveUntilTheEnd()
{
    PickerSearch search;
    search.restart(*m_db);
    QVERIFY(search.isLoading());
    finish(search);
    QCOMPARE(search.results().size(), 5);
    QVERIFY(!search.isExhausted());
    for (int page = 2; page <= 4; ++page) {
        search.loadMore(*m_db);
        finish(search);
        QCOMPARE(search.results().size(), page * 5);
        QVERIFY(!search.isExhausted());
    }
    search.loadMore(*m_db);
    finish(search);
    QCOMPARE(search.results().size(), 23);
    QVERIFY(search.isExhausted());
    QCOMPARE(search.results().first().key, u"/item1"_s); // scan order, no score
    QCOMPARE(search.results().last().key, u"/item23"_s);
}

void TestPickerSearch::aCalculationIsOneRowAndNoScan()
{
    PickerSearch search;
    search.value = u"12*3"_s;
    search.restart(*m_db);
    QVERIFY(!search.isLoading());
    QVERIFY(search.isExhausted());
    QCOMPARE(keysOf(search.results()), QStringList{u"= 36"_s});
    QVERIFY(search.results().first().isMathResult.value_or(false));

    search.value = u"12*"_s; // looks like one, gives nothing
    search.restart(*m_db);
    QVERIFY(search.results().isEmpty());
    QVERIFY(search.isExhausted());
}

void TestPickerSearch::hiddenCollections_data()
{
    QTest::addColumn<bool>("hiddenOnly");
    QTest::addColumn<bool>("showHidden");
    QTest::addColumn<QStringList>("keys");
    QTest::newRow("hidden left out") << false << false << QStringList{u"/both"_s, u"/shown"_s};
    QTest::newRow("hidden shown too") << false << true << QStringList{u"/both"_s, u"/secret"_s, u"/shown"_s};
    QTest::newRow("hidden only") << true << false << QStringList{u"/both"_s, u"/secret"_s};
}

void TestPickerSearch::hiddenCollections()
{
    QFETCH(bool, hiddenOnly);
    QFETCH(bool, showHidden);
    QFETCH(QStringList, keys);
    m_db->setClips(
        {clip(u"/both"_s, u"Private"_s, {u"Work"_s}), clip(u"/secret"_s, u"private"_s), clip(u"/shown"_s, u"Work"_s)});
    m_db->setHiddenCollections({u"Private"_s});
    PickerSearch search(m_defaults.get());
    search.showHiddenOnly = hiddenOnly;
    search.setShowHiddenCollections(showHidden);
    search.restart(*m_db);
    finish(search);
    QCOMPARE(keysOf(search.results()), keys);
    QCOMPARE(m_defaults->flag(u"tavoPickerShowHiddenCollections"_s), showHidden); // remembered
}

void TestPickerSearch::twoQuickRestartsLeaveOneScan()
{
    PickerSearch search;
    QSignalSpy changes(&search, &PickerSearch::resultsChanged);
    search.value = u"item1"_s;
    search.restart(*m_db);
    search.value = u"item2"_s;
    search.restart(*m_db); // before the first scan took a step
    finish(search);
    // Only the second query's items: item2, item20..item23.
    QCOMPARE(keysOf(search.results()),
             (QStringList{u"/item2"_s, u"/item20"_s, u"/item21"_s, u"/item22"_s, u"/item23"_s}));
    QTest::qWait(20);
    QCOMPARE(keysOf(search.results()).size(), 5); // nothing came late from the first scan
}

void TestPickerSearch::aBatchListsItsShortcutsInScanOrder()
{
    PickerSearch search;
    search.value = u"\\item3..5"_s;
    search.restart(*m_db);
    finish(search);
    QCOMPARE(keysOf(search.results()), (QStringList{u"/item3"_s, u"/item4"_s, u"/item5"_s}));
}

void TestPickerSearch::recordsFollowShortcutsAndATwinHidesOne()
{
    CollectionRecord twin;
    twin.collection = u"Customers"_s;
    twin.name = u"Ada"_s;
    twin.alias = u"ada"_s;
    twin.values = {{u"email"_s, u"ada@example.org"_s}};
    CollectionRecord picture;
    picture.collection = u"Products"_s;
    picture.name = u"Lamp"_s;
    picture.alias = u"lamp"_s;
    picture.files = {u"/tmp/lamp.png"_s};
    m_db->setClips({clip(u"/Ada"_s, u"Work"_s, {u"customers"_s}), clip(u"/item1"_s, u"Personal"_s)});
    m_db->setCollectionRecords({twin, picture});

    PickerSearch search;
    search.restart(*m_db);
    finish(search);
    QCOMPARE(keysOf(search.results()), (QStringList{u"/Ada"_s, u"/item1"_s, u"/lamp"_s}));
    const Clip& lamp = search.results().last();
    QCOMPARE(lamp.directMediaPaste, std::optional<bool>(true)); // no values, only media
    QCOMPARE(lamp.text, u"Lamp"_s);
    QCOMPARE(lamp.group, u"Products"_s);
}

void TestPickerSearch::aStoreChangeMidScanSkipsNothing()
{
    PickerSearch search;
    search.restart(*m_db);
    // The first shortcuts go away before the scan's first step: it walks what it started with.
    m_db->setClips(m_db->clips().mid(3));
    finish(search);
    QCOMPARE(keysOf(search.results()), (QStringList{u"/item1"_s, u"/item2"_s, u"/item3"_s, u"/item4"_s, u"/item5"_s}));
    search.loadMore(*m_db);
    finish(search);
    QCOMPARE(search.results().size(), 10);
    QCOMPARE(search.results().at(5).key, u"/item6"_s); // nothing skipped, nothing twice
}

void TestPickerSearch::queries_data()
{
    QTest::addColumn<QString>("query");
    QTest::addColumn<int>("found");
    QTest::newRow("part of a key") << u"item2"_s << 5; // item2, item20 to item23
    QTest::newRow("any case") << u"ITEM23"_s << 1;
    QTest::newRow("part of the text") << u"Text of /item1"_s << 11;
    QTest::newRow("a styled key searches for its base") << u"item23-b"_s << 1;
    QTest::newRow("a style alone names nothing") << u"-b"_s << 0;
    QTest::newRow("blanks around count for nothing") << u"  item23 "_s << 1;
}

void TestPickerSearch::queries()
{
    QFETCH(QString, query);
    QFETCH(int, found);
    PickerSearch search;
    search.value = query;
    search.restart(*m_db);
    while (!search.isExhausted()) {
        finish(search);
        search.loadMore(*m_db);
    }
    QCOMPARE(search.results().size(), found);
}

QTEST_GUILESS_MAIN(TestPickerSearch)
#include "tst_picker_search.moc"
