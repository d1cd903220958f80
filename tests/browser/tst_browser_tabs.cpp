#include "browser/browser_tabs.h"
#include "store/defaults.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

QString defaultsPath()
{
    return Defaults::defaultFilePath();
}

QByteArray fileBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList ids(const QList<TavoBrowserTab>& tabs)
{
    QStringList list;
    for (const TavoBrowserTab& tab : tabs) {
        list.append(tab.id);
    }
    return list;
}

QStringList titles(const QList<TavoBrowserCollection>& collections)
{
    QStringList list;
    for (const TavoBrowserCollection& collection : collections) {
        list.append(collection.title);
    }
    return list;
}

QStringList urls(const QList<TavoSavedSite>& saved)
{
    QStringList list;
    for (const TavoSavedSite& site : saved) {
        list.append(site.url);
    }
    return list;
}

void writeFile(const QString& path, const QByteArray& data)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(data);
}

} // namespace

// The browser's model on a real settings file in the test's own home.
class TestBrowserTabs : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void firstStart();
    void startRepairsStoredState_data();
    void startRepairsStoredState();
    void changesSurviveARestart();
    void writesOfOneTurnAreJoined();
    void followsAnotherWriter();
    void navigate_data();
    void navigate();
    void closeKeepsTheInvariants();
    void groups_data();
    void groups();
    void zoomIsClamped_data();
    void zoomIsClamped();
    void savingLinks_data();
    void savingLinks();
    void splitTool();
    void incognitoLeavesNoTrace();
    void changeJustBeforeIncognitoIsKept();
    void privateWebsiteDataStoreID_data();
    void privateWebsiteDataStoreID();
    void importFiles_data();
    void importFiles();
    void importTwiceCountsAll();

private:
    std::unique_ptr<Defaults> m_defaults;
    QTemporaryDir m_files;
};

void TestBrowserTabs::init()
{
    m_defaults.reset();
    QFile::remove(defaultsPath());
    m_defaults = std::make_unique<Defaults>();
}

void TestBrowserTabs::firstStart()
{
    TavoBrowserTabs tabs(*m_defaults);
    QCOMPARE(tabs.tabs(), QList<TavoBrowserTab>{TavoBrowserTab::home()});
    QCOMPARE(tabs.saved().size(), 1);
    QCOMPARE(tabs.saved().first(), TavoSavedSite::builtInHomeLink());
    QCOMPARE(tabs.saved().first().title, u"Tavo"_s);
    QCOMPARE(titles(tabs.collections()), QStringList{u"Favorites"_s});
    QCOMPARE(tabs.selectedID(), homeTabID);
    QCOMPARE(tabs.address(), homeURL);
    QVERIFY(!tabs.splitEnabled());
    // Starting writes nothing.
    QVERIFY(!QFile::exists(defaultsPath()));
}

void TestBrowserTabs::startRepairsStoredState_data()
{
    QTest::addColumn<QString>("storedTabs");
    QTest::addColumn<QString>("storedCollections");
    QTest::addColumn<QStringList>("tabIDs");
    QTest::addColumn<QStringList>("linkURLs");
    QTest::addColumn<QStringList>("collectionTitles");

    const QString home = homeTabID;
    QTest::newRow("an edited Home tab and built-in link are replaced at the front")
        << uR"({"tabs":[{"id":"a","title":"A","url":"https://a/"},{"id":"tavo-default-home","title":"Hacked","url":"https://evil/"}],
               "saved":[{"url":"https://s/"},{"id":"tavo-default-home","title":"Mine","url":"https://mine/"}],"selectedID":"a"})"_s
        << uR"([{"id":"c","title":"Work","createdAt":1}])"_s << QStringList{home, u"a"_s}
        << QStringList{builtInHomeLinkURL, u"https://s/"_s} << QStringList{u"Work"_s, u"Favorites"_s};
    QTest::newRow("favorites in lower case is enough")
        << QString() << uR"([{"id":"c","title":"favorites","createdAt":1}])"_s << QStringList{home}
        << QStringList{builtInHomeLinkURL} << QStringList{u"favorites"_s};
    QTest::newRow("an empty collection list gets Favorites")
        << QString() << u"[]"_s << QStringList{home} << QStringList{builtInHomeLinkURL} << QStringList{u"Favorites"_s};
    QTest::newRow("undecodable data falls back to the start values")
        << uR"({"tabs":[{"id":"a","title":"A"}],"saved":[],"selectedID":"a"})"_s << u"[{\"id\":1}]"_s
        << QStringList{home} << QStringList{builtInHomeLinkURL} << QStringList{u"Favorites"_s};
    QTest::newRow("not JSON at all") << u"{"_s << u"garbage"_s << QStringList{home} << QStringList{builtInHomeLinkURL}
                                     << QStringList{u"Favorites"_s};
}

void TestBrowserTabs::startRepairsStoredState()
{
    QFETCH(QString, storedTabs);
    QFETCH(QString, storedCollections);
    if (!storedTabs.isNull()) {
        m_defaults->setString(BrowserKeys::tabs, storedTabs);
    }
    m_defaults->setString(BrowserKeys::collections, storedCollections);
    m_defaults->setString(BrowserKeys::tabGroups, u"{\"a\":\"X\"}"_s);
    m_defaults->setString(BrowserKeys::collapsedGroups, u"not a list"_s);
    m_defaults->setBoolean(BrowserKeys::splitEnabled, true);
    m_defaults->setString(BrowserKeys::splitSecondary, u"a"_s);
    const QByteArray before = fileBytes(defaultsPath());

    TavoBrowserTabs tabs(*m_defaults);
    QTEST(ids(tabs.tabs()), "tabIDs");
    QTEST(urls(tabs.saved()), "linkURLs");
    QTEST(titles(tabs.collections()), "collectionTitles");
    QCOMPARE(tabs.tabs().first(), TavoBrowserTab::home());
    QCOMPARE(tabs.saved().first(), TavoSavedSite::builtInHomeLink());
    QCOMPARE(tabs.selectedID(), homeTabID); // a stored selection is never restored
    QCOMPARE(tabs.tabGroups(), (QMap<QString, QString>{{u"a"_s, u"X"_s}}));
    QVERIFY(tabs.collapsedTabGroups().isEmpty());
    QVERIFY(tabs.splitEnabled());
    QCOMPARE(tabs.secondaryID(), u"a"_s);
    tabs.flush();
    QCOMPARE(fileBytes(defaultsPath()), before);
}

void TestBrowserTabs::changesSurviveARestart()
{
    {
        TavoBrowserTabs tabs(*m_defaults);
        tabs.newTab(u"https://one/"_s);
        const QString one = tabs.selectedID();
        tabs.newTab(homeURL);
        QCOMPARE(tabs.tabs().last().title, u"Home"_s);
        tabs.assignGroup(one, u"Work"_s);
        tabs.toggleGroup(u"Work"_s);
        tabs.saveCurrent(u"One"_s, u"https://one/"_s, {u"t"_s}, u"note"_s, u" Reading "_s);
        tabs.setSplitEnabled(true);
        tabs.setSecondaryID(one);
        tabs.setZoom(2.0);
        // Nothing is lost when the model goes without a turn of the event loop.
    }
    Defaults reread;
    TavoBrowserTabs tabs(reread);
    QCOMPARE(tabs.tabs().size(), 3);
    QCOMPARE(tabs.tabs()[1].url, u"https://one/"_s);
    QCOMPARE(tabs.tabGroups().value(tabs.tabs()[1].id), u"Work"_s);
    QCOMPARE(tabs.collapsedTabGroups(), QSet<QString>{u"Work"_s});
    QCOMPARE(tabs.saved().last().collection, u"Reading"_s);
    QCOMPARE(titles(tabs.collections()), (QStringList{u"Favorites"_s, u"Reading"_s}));
    QVERIFY(tabs.splitEnabled());
    QCOMPARE(tabs.secondaryID(), tabs.tabs()[1].id);
    QCOMPARE(tabs.selectedID(), homeTabID);
    QCOMPARE(tabs.currentZoom(), 1.0); // page zoom lasts one run
}

void TestBrowserTabs::writesOfOneTurnAreJoined()
{
    TavoBrowserTabs tabs(*m_defaults);
    QSignalSpy writes(m_defaults.get(), &Defaults::valuesChanged);
    tabs.newTab(u"https://a/"_s);
    tabs.assignGroup(tabs.selectedID(), u"G"_s);
    tabs.renameGroup(u"G"_s, u"H"_s);
    QCOMPARE(writes.size(), 0);
    QCoreApplication::processEvents();
    QCOMPARE(writes.size(), 1);
    Defaults reread;
    TavoBrowserTabs again(reread);
    QCOMPARE(again.tabGroups().values(), QStringList{u"H"_s});
}

void TestBrowserTabs::followsAnotherWriter()
{
    TavoBrowserTabs running(*m_defaults);
    QSignalSpy tabsChanged(&running, &TavoBrowserTabs::tabsChanged);
    {
        Defaults other;
        TavoBrowserTabs tool(other);
        tool.newTab(u"https://from-tool/"_s);
    }
    m_defaults->reload();
    QVERIFY(!tabsChanged.isEmpty());
    QCOMPARE(running.tabs().size(), 2);
    QCOMPARE(running.tabs().last().url, u"https://from-tool/"_s);
    QCOMPARE(running.selectedID(), homeTabID);
}

void TestBrowserTabs::navigate_data()
{
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("url"); // empty: nothing changes

    QTest::newRow("bare host goes over https") << u"example.com"_s << u"https://example.com"_s;
    QTest::newRow("trimmed") << u"  http://a.test/x?q=1 \n"_s << u"http://a.test/x?q=1"_s;
    QTest::newRow("scheme in capitals") << u"HTTPS://Example.com/"_s << u"HTTPS://Example.com/"_s;
    QTest::newRow("ftp refused") << u"ftp://files.test/"_s << QString();
    QTest::newRow("home address typed by hand refused") << u"tavo://home"_s << QString();
    QTest::newRow("script refused") << u"javascript:alert(1)"_s << QString();
    QTest::newRow("file refused") << u"file:///etc/passwd"_s << QString();
    QTest::newRow("words are no address") << u"cheap flights"_s << QString();
}

void TestBrowserTabs::navigate()
{
    QFETCH(QString, typed);
    QFETCH(QString, url);
    TavoBrowserTabs tabs(*m_defaults);
    tabs.newTab(u"https://before/"_s);
    tabs.setAddress(typed);
    tabs.navigate();
    if (url.isEmpty()) {
        QCOMPARE(tabs.current()->url, u"https://before/"_s);
        QCOMPARE(tabs.address(), typed); // the field keeps the text
    } else {
        QCOMPARE(tabs.current()->url, url);
        QCOMPARE(tabs.address(), url);
        QCOMPARE(tabs.current()->title, u"New tab"_s); // until the page reports its own
    }
}

void TestBrowserTabs::closeKeepsTheInvariants()
{
    TavoBrowserTabs tabs(*m_defaults);
    tabs.close(homeTabID);
    QCOMPARE(tabs.tabs().size(), 1);

    tabs.newTab(u"https://a/"_s);
    const QString a = tabs.selectedID();
    tabs.newTab(u"https://b/"_s);
    const QString b = tabs.selectedID();
    tabs.assignGroup(b, u"X"_s);
    QObject* view = new QObject;
    QPointer<QObject> watched(view);
    tabs.setWebView(b, view);
    tabs.close(b);
    QCOMPARE(ids(tabs.tabs()), (QStringList{homeTabID, a}));
    QVERIFY(!tabs.tabGroups().contains(b));
    QCOMPARE(tabs.selectedID(), homeTabID); // the first tab
    QCOMPARE(tabs.address(), homeURL);
    QVERIFY(!tabs.webView(b));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(!watched);

    tabs.select(a);
    tabs.close(homeTabID); // still not
    tabs.close(u"unknown"_s);
    QCOMPARE(tabs.selectedID(), a);
    QCOMPARE(tabs.tabs().size(), 2);
    tabs.select(u"unknown"_s);
    QCOMPARE(tabs.selectedID(), a);
    QCOMPARE(tabs.address(), u"https://a/"_s);
}

void TestBrowserTabs::groups_data()
{
    QTest::addColumn<QStringList>("groupOfTab"); // per tab after Home; "" for none
    QTest::addColumn<QString>("homeGroup");
    QTest::addColumn<QStringList>("ordered");
    QTest::newRow("ungrouped run first") << QStringList{u"X"_s, QString(), u"X"_s} << QString()
                                         << QStringList{QString(), u"X"_s};
    QTest::newRow("grouped Home first") << QStringList{QString(), u"Y"_s} << u"Z"_s
                                        << QStringList{u"Z"_s, QString(), u"Y"_s};
    QTest::newRow("all grouped") << QStringList{u"A"_s, u"B"_s} << u"B"_s << QStringList{u"B"_s, u"A"_s};
}

void TestBrowserTabs::groups()
{
    QFETCH(QStringList, groupOfTab);
    QFETCH(QString, homeGroup);
    QFETCH(QStringList, ordered);
    TavoBrowserTabs tabs(*m_defaults);
    for (const QString& group : groupOfTab) {
        tabs.newTab(u"https://t/"_s);
        tabs.assignGroup(tabs.selectedID(), group.isEmpty() ? std::nullopt : std::optional<QString>(group));
    }
    tabs.assignGroup(homeTabID, homeGroup);
    QCOMPARE(tabs.orderedGroups(), ordered);

    // A collapsed group stays collapsed under its new name; a blank name changes nothing.
    const QString named = ordered.last();
    tabs.toggleGroup(named);
    tabs.renameGroup(named, u"  \n"_s);
    QVERIFY(tabs.collapsedTabGroups().contains(named));
    tabs.renameGroup(named, u"  Renamed "_s);
    QCOMPARE(tabs.collapsedTabGroups(), QSet<QString>{u"Renamed"_s});
    QVERIFY(tabs.orderedGroups().contains(u"Renamed"_s));
    QVERIFY(!tabs.orderedGroups().contains(named));
    // Ungrouping keeps the collapsed name, and the group is gone.
    tabs.ungroup(u"Renamed"_s);
    QVERIFY(!tabs.orderedGroups().contains(u"Renamed"_s));
    QCOMPARE(tabs.collapsedTabGroups(), QSet<QString>{u"Renamed"_s});
    tabs.toggleGroup(u"Renamed"_s);
    QVERIFY(tabs.collapsedTabGroups().isEmpty());
    QVERIFY(int(tabGroupColor(u"Work"_s)) < 6);
}

void TestBrowserTabs::zoomIsClamped_data()
{
    QTest::addColumn<double>("set");
    QTest::addColumn<double>("delta");
    QTest::addColumn<double>("stored");
    QTest::newRow("above the range") << 9.0 << 0.0 << 2.5;
    QTest::newRow("below the range") << 0.1 << 0.0 << 0.5;
    QTest::newRow("inside") << 1.3 << 0.0 << 1.3;
    QTest::newRow("a step up at the top") << 2.5 << zoomStep << 2.5;
    QTest::newRow("a step down") << 1.0 << -zoomStep << 0.95;
}

void TestBrowserTabs::zoomIsClamped()
{
    QFETCH(double, set);
    QFETCH(double, delta);
    TavoBrowserTabs tabs(*m_defaults);
    tabs.setZoom(set);
    tabs.adjustZoom(delta);
    QTEST(tabs.currentZoom(), "stored");
    tabs.newTab(homeURL);
    QCOMPARE(tabs.currentZoom(), 1.0); // by tab
    tabs.select(homeTabID);
    tabs.resetZoom();
    QCOMPARE(tabs.zoomLevels().value(homeTabID), 1.0);
}

void TestBrowserTabs::savingLinks_data()
{
    QTest::addColumn<QString>("urlText");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("tagsText");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<bool>("saved");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("tags");
    QTest::addColumn<QString>("storedCollection");

    QTest::newRow("bare host, blank name, messy tags")
        << u" example.com/x "_s << u"  "_s << u" a, ,b ,,"_s << QString() << true << u"https://example.com/x"_s
        << u"Opened as"_s << QStringList{u"a"_s, u"b"_s} << u"Favorites"_s;
    QTest::newRow("favorites in lower case makes no second collection")
        << u"https://b/"_s << u"B"_s << QString() << u"favorites"_s << true << u"https://b/"_s << u"B"_s
        << QStringList() << u"favorites"_s;
    QTest::newRow("an address that does not parse saves nothing")
        << u"exa mple.com"_s << u"X"_s << QString() << QString() << false << QString() << QString() << QStringList()
        << QString();
}

void TestBrowserTabs::savingLinks()
{
    QFETCH(QString, urlText);
    QFETCH(QString, name);
    QFETCH(QString, tagsText);
    QFETCH(QString, collection);
    QFETCH(bool, saved);
    TavoBrowserTabs tabs(*m_defaults);
    const std::optional<QString> id = tabs.saveBookmark(urlText, name, u"Opened as"_s, tagsText, u"why"_s, collection);
    QCOMPARE(id.has_value(), saved);
    QCOMPARE(titles(tabs.collections()), QStringList{u"Favorites"_s});
    if (!saved) {
        QCOMPARE(tabs.saved().size(), 1);
        return;
    }
    const TavoSavedSite link = tabs.saved().last();
    QCOMPARE(link.id, *id);
    QTEST(link.url, "url");
    QTEST(link.title, "title");
    QTEST(link.tags, "tags");
    QTEST(link.collection, "storedCollection");

    // The same address again updates that link, keeping its id.
    tabs.saveCurrent(QString(), link.url, {u"z"_s}, u"again"_s, u"Later"_s);
    QCOMPARE(tabs.saved().size(), 2);
    QCOMPARE(tabs.saved().last().id, *id);
    QCOMPARE(tabs.saved().last().title, u"Home"_s); // the current tab's title
    QCOMPARE(tabs.saved().last().collection, u"Later"_s);
    QCOMPARE(titles(tabs.collections()), (QStringList{u"Favorites"_s, u"Later"_s}));

    tabs.removeBookmark(homeTabID);
    QCOMPARE(tabs.saved().first(), TavoSavedSite::builtInHomeLink());
    tabs.removeBookmark(*id);
    QCOMPARE(tabs.saved().size(), 1);

    QVERIFY(TavoBrowserTabs::savedSiteVisible(link, QString(), u"EXAMPLE"_s) == link.url.contains(u"example"_s));
    QVERIFY(!TavoBrowserTabs::savedSiteVisible(link, u"Other"_s, QString()));
    QVERIFY(TavoBrowserTabs::savedSiteVisible(link, link.collection, u"WHY"_s));
}

void TestBrowserTabs::splitTool()
{
    TavoBrowserTabs tabs(*m_defaults);
    tabs.toggleSplit();
    QCOMPARE(tabs.tabs().size(), 2);
    QVERIFY(tabs.splitEnabled());
    QCOMPARE(tabs.secondaryID(), homeTabID); // the first tab that is not the current one
    const QString secondary = tabs.selectedID();
    tabs.close(secondary);
    QCOMPARE(tabs.secondaryID(), homeTabID);
    tabs.toggleSplit();
    QVERIFY(!tabs.splitEnabled());
}

void TestBrowserTabs::incognitoLeavesNoTrace()
{
    TavoBrowserTabs tabs(*m_defaults);
    tabs.newTab(u"https://normal/"_s);
    const QString normal = tabs.selectedID();
    tabs.assignGroup(normal, u"N"_s);
    tabs.flush();
    const QByteArray before = fileBytes(defaultsPath());
    const QList<TavoBrowserTab> tabsBefore = tabs.tabs();

    tabs.toggleIncognito();
    QVERIFY(tabs.isIncognito());
    QCOMPARE(tabs.tabs(), QList<TavoBrowserTab>{TavoBrowserTab::home()});
    QVERIFY(tabs.tabGroups().isEmpty());
    tabs.newTab(u"https://secret/"_s);
    tabs.saveCurrent(u"S"_s, u"https://secret/"_s, {}, {}, u"Hidden"_s);
    tabs.assignGroup(tabs.selectedID(), u"I"_s);
    tabs.toggleSplit();
    const QString bookmarks = m_files.filePath(u"Bookmarks"_s);
    writeFile(bookmarks, R"({"roots":{"r":{"type":"url","name":"x","url":"https://imported/"}}})");
    QCOMPARE(tabs.importChromeFile(bookmarks), 1);
    QVERIFY(urls(tabs.saved()).contains(u"https://imported/"_s));
    QCoreApplication::processEvents();
    tabs.flush();
    QCOMPARE(fileBytes(defaultsPath()), before);

    tabs.toggleIncognito();
    QVERIFY(!tabs.isIncognito());
    QCOMPARE(tabs.tabs(), tabsBefore);
    QCOMPARE(tabs.selectedID(), normal);
    QCOMPARE(tabs.address(), u"https://normal/"_s);
    QVERIFY(!urls(tabs.saved()).contains(u"https://secret/"_s));
    tabs.flush();
    QCOMPARE(fileBytes(defaultsPath()), before);
}

void TestBrowserTabs::changeJustBeforeIncognitoIsKept()
{
    {
        TavoBrowserTabs tabs(*m_defaults);
        tabs.newTab(u"https://kept/"_s);
        tabs.toggleIncognito();
        tabs.newTab(u"https://dropped/"_s);
        // The program quits in incognito, with no turn of the event loop in between.
    }
    Defaults reread;
    TavoBrowserTabs tabs(reread);
    QCOMPARE(tabs.tabs().size(), 2);
    QCOMPARE(tabs.tabs().last().url, u"https://kept/"_s);
}

void TestBrowserTabs::privateWebsiteDataStoreID_data()
{
    QTest::addColumn<QString>("stored"); // null: absent
    QTest::addColumn<bool>("kept");
    QTest::newRow("absent") << QString() << false;
    QTest::newRow("not a UUID") << u"store"_s << false;
    QTest::newRow("a UUID") << u"0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0"_s << true;
}

void TestBrowserTabs::privateWebsiteDataStoreID()
{
    QFETCH(QString, stored);
    QFETCH(bool, kept);
    if (!stored.isNull()) {
        m_defaults->setString(BrowserKeys::privateWebsiteDataStoreID, stored);
    }
    TavoBrowserTabs tabs(*m_defaults);
    const QString id = tabs.privateWebsiteDataStoreID();
    QCOMPARE(id == stored, kept);
    QVERIFY(!QUuid::fromString(id).isNull());
    QCOMPARE(tabs.privateWebsiteDataStoreID(), id);
    QCOMPARE(Defaults().string(BrowserKeys::privateWebsiteDataStoreID), std::optional<QString>(id));
}

void TestBrowserTabs::importFiles_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("data"); // null: no file; "sparse": 1 GiB with a hole
    QTest::addColumn<qsizetype>("imported");
    QTest::addColumn<QString>("message");

    const QString none =
        u"No bookmarks found. Export Chrome bookmarks as HTML or choose a Chrome profile\u2019s Bookmarks file."_s;
    QTest::newRow("profile file without extension is JSON")
        << u"Bookmarks"_s
        << R"({"roots":{"bookmark_bar":{"type":"folder","name":"Bar","children":[{"type":"url","name":"a","url":"https://a/"}]}}})"_ba
        << qsizetype(1) << u"Imported 1 Chrome bookmark(s), with folders saved as Tavo collections."_s;
    QTest::newRow("HTML export")
        << u"bookmarks.html"_s
        << "<DL><DT><H3>F</H3><DL><DT><A HREF=\"https://a/\">A</A><DT><A HREF=\"javascript:x()\">J</A></DL></DL>"_ba
        << qsizetype(2) << u"Imported 2 Chrome bookmark(s), with folders saved as Tavo collections."_s;
    QTest::newRow("nothing in it") << u"empty.html"_s << "<html></html>"_ba << qsizetype(0) << none;
    QTest::newRow("JSON that does not parse") << u"Bookmarks"_s << "{\"roots\":"_ba << qsizetype(0) << none;
    QTest::newRow("missing file") << u"missing.html"_s << QByteArray() << qsizetype(0)
                                  << u"Could not import bookmarks: No such file or directory"_s;
    QTest::newRow("a sparse file of 1 GiB") << u"huge.html"_s << "sparse"_ba << qsizetype(0)
                                            << u"Could not import bookmarks: The file is larger than 64 MiB."_s;
}

void TestBrowserTabs::importFiles()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, data);
    const QString path = m_files.filePath(name);
    QFile::remove(path);
    if (data == "sparse") {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(qint64(1) << 30));
    } else if (!data.isNull()) {
        writeFile(path, data);
    }
    TavoBrowserTabs tabs(*m_defaults);
    QTEST(tabs.importChromeFile(path), "imported");
    QTEST(tabs.browserMessage().value_or(QString()), "message");
    QFETCH(qsizetype, imported);
    QCOMPARE(tabs.saved().size(), 1 + imported);
    if (imported > 0) {
        const TavoSavedSite& first = tabs.saved()[1];
        QVERIFY(titles(tabs.collections()).contains(first.collection));
        // A script link is kept, but never becomes a loadable address.
        for (const TavoSavedSite& site : tabs.saved()) {
            QCOMPARE(TavoBrowserTabs::isLoadableAddress(site.url), site.url.startsWith(u"http"_s));
        }
    }
    QFile::remove(path);
}

void TestBrowserTabs::importTwiceCountsAll()
{
    const QString path = m_files.filePath(u"twice.html"_s);
    writeFile(path, "<DT><H3>Work</H3><DL><A HREF=\"https://a/\">A</A><A HREF=\"https://b/\">B</A></DL>"
                    "<A HREF=\"https://a/\">A again</A>");
    TavoBrowserTabs tabs(*m_defaults);
    tabs.saveCurrent(u"Mine"_s, u"https://b/"_s, {}, {}, u"Mine"_s);
    const QString mineID = tabs.saved().last().id;
    QSignalSpy writes(m_defaults.get(), &Defaults::valuesChanged);
    QCOMPARE(tabs.importChromeFile(path), 3);
    QCOMPARE(urls(tabs.saved()), (QStringList{builtInHomeLinkURL, u"https://b/"_s, u"https://a/"_s}));
    // Replaced in place by the imported link, id and all; the later duplicate replaces the earlier.
    QVERIFY(tabs.saved()[1].id != mineID);
    QCOMPARE(tabs.saved()[1].collection, u"Work"_s);
    QCOMPARE(tabs.saved()[2].title, u"A again"_s);
    QCOMPARE(tabs.saved()[2].collection, u"Chrome imports"_s);
    QCOMPARE(titles(tabs.collections()), (QStringList{u"Favorites"_s, u"Mine"_s, u"Work"_s, u"Chrome imports"_s}));

    QCOMPARE(tabs.importChromeFile(path), 3);
    QCOMPARE(tabs.saved().size(), 3);
    QCOMPARE(tabs.browserMessage(),
             std::optional<QString>(u"Imported 3 Chrome bookmark(s), with folders saved as Tavo collections."_s));
    QCoreApplication::processEvents();
    QCOMPARE(writes.size(), 1); // the two imports of this turn, and the save before, in one write
}

QTEST_GUILESS_MAIN(TestBrowserTabs)
#include "tst_browser_tabs.moc"
