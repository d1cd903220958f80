#include "browser/browser_tabs.h"
#include "store/defaults.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace tavo;
using namespace Qt::StringLiterals;

// `tavoctl browser` through the real program, on the real settings file and keyring, beside a
// model that stands for a running Tavo.
class TestTavoctlBrowser : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void tabs();
    void refusals_data();
    void refusals();
    void linksAndCollections();
    void importSaysHowItWent_data();
    void importSaysHowItWent();
    void privateWorkspace();
    void runningModelFollows();

private:
    struct Run
    {
        int status;
        QString out;
        QString err;
    };
    static Run tavoctl(const QStringList& arguments, const QByteArray& input = {});
    QTemporaryDir m_files;
};

TestTavoctlBrowser::Run TestTavoctlBrowser::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), QStringList{u"browser"_s} + arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000)) {
        return {-1, {}, {}};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

void TestTavoctlBrowser::init()
{
    QFile::remove(Defaults::defaultFilePath());
}

void TestTavoctlBrowser::tabs()
{
    Run run = tavoctl({u"tabs"_s});
    QCOMPARE(run.status, 0);
    QCOMPARE(run.out, u"tavo-default-home\tHome\ttavo://home\t\n"_s);

    run = tavoctl({u"open"_s, u" example.com "_s});
    QCOMPARE(run.status, 0);
    const QString id = run.out.section(u'\t', 0, 0);
    QCOMPARE(run.out, id + u"\thttps://example.com\n"_s);

    QCOMPARE(tavoctl({u"group"_s, id, u" Work "_s}).status, 0);
    run = tavoctl({u"tabs"_s, u"--json"_s});
    QCOMPARE(run.status, 0);
    const QJsonObject json = QJsonDocument::fromJson(run.out.toUtf8()).object();
    QCOMPARE(json.value(u"tabs"_s).toArray().size(), 2);
    QCOMPARE(json.value(u"tabs"_s)[1][u"url"_s].toString(), u"https://example.com"_s);
    QCOMPARE(json.value(u"tabs"_s)[1][u"title"_s].toString(), u"New tab"_s);
    QCOMPARE(json.value(u"tabGroups"_s)[id].toString(), u"Work"_s);
    QCOMPARE(json.value(u"selectedID"_s).toString(), homeTabID);

    QCOMPARE(tavoctl({u"group"_s, id, u"--none"_s}).status, 0);
    QVERIFY(tavoctl({u"tabs"_s}).out.endsWith(u"https://example.com\t\n"_s));
    QCOMPARE(tavoctl({u"close"_s, id}).status, 0);
    QCOMPARE(tavoctl({u"tabs"_s}).out, u"tavo-default-home\tHome\ttavo://home\t\n"_s);
}

void TestTavoctlBrowser::refusals_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("err");
    QTest::newRow("ftp is not opened") << QStringList{u"open"_s, u"ftp://x/"_s} << 1
                                       << u"Tavo opens only http and https addresses: ftp://x/\n"_s;
    QTest::newRow("nor a script") << QStringList{u"open"_s, u"javascript:alert(1)"_s} << 1
                                  << u"Tavo opens only http and https addresses: javascript:alert(1)\n"_s;
    QTest::newRow("Home stays") << QStringList{u"close"_s, homeTabID} << 1 << u"The Home tab cannot be closed.\n"_s;
    QTest::newRow("unknown tab") << QStringList{u"close"_s, u"nope"_s} << 1 << u"No tab has the id nope.\n"_s;
    QTest::newRow("group of an unknown tab")
        << QStringList{u"group"_s, u"nope"_s, u"G"_s} << 1 << u"No tab has the id nope.\n"_s;
    QTest::newRow("built-in link stays") << QStringList{u"unsave"_s, homeTabID} << 1
                                         << u"The built-in home link cannot be removed.\n"_s;
    QTest::newRow("unparsable link") << QStringList{u"save"_s, u"a b"_s} << 1
                                     << u"Not an address Tavo can save: a b\n"_s;
    QTest::newRow("no private passcode yet")
        << QStringList{u"--private"_s, u"tabs"_s} << 1
        << u"Private Mode has no passcode yet; set one up with 'tavoctl browser private setup'.\n"_s;
}

void TestTavoctlBrowser::refusals()
{
    QFETCH(QStringList, arguments);
    const Run run = tavoctl(arguments, "123456\n");
    QTEST(run.status, "status");
    QTEST(run.err, "err");
    QVERIFY(run.out.isEmpty());
    QVERIFY(!QFile::exists(Defaults::defaultFilePath())); // a refusal writes nothing
}

void TestTavoctlBrowser::linksAndCollections()
{
    Run run = tavoctl({u"save"_s, u"docs.example/a"_s, u"--title"_s, u"Docs"_s, u"--tags"_s, u"ref, ,work "_s,
                       u"--note"_s, u"why"_s, u"--collection"_s, u"Work"_s});
    QCOMPARE(run.status, 0);
    const QString id = run.out.trimmed();
    QCOMPARE(tavoctl({u"save"_s, u"https://other.example/"_s}).status, 0);

    run = tavoctl({u"links"_s, u"--collection"_s, u"Work"_s});
    QCOMPARE(run.out, id + u"\tDocs\thttps://docs.example/a\tWork\tref, work\n"_s);
    run = tavoctl({u"links"_s, u"--search"_s, u"OTHER"_s, u"--json"_s});
    const QJsonArray links = QJsonDocument::fromJson(run.out.toUtf8()).array();
    QCOMPARE(links.size(), 1);
    QCOMPARE(links[0][u"title"_s].toString(), u"Saved page"_s);
    QCOMPARE(links[0][u"collection"_s].toString(), u"Favorites"_s);
    QCOMPARE(links[0][u"tags"_s].toArray(), QJsonArray());

    run = tavoctl({u"collections"_s, u"--json"_s});
    const QJsonArray collections = QJsonDocument::fromJson(run.out.toUtf8()).array();
    QCOMPARE(collections.size(), 2);
    QCOMPARE(collections[1][u"title"_s].toString(), u"Work"_s);
    QVERIFY(collections[1][u"createdAt"_s].isDouble());

    QCOMPARE(tavoctl({u"unsave"_s, id}).status, 0);
    QVERIFY(!tavoctl({u"links"_s}).out.contains(id));
}

void TestTavoctlBrowser::importSaysHowItWent_data()
{
    QTest::addColumn<QByteArray>("data");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::addColumn<QString>("err");
    QTest::newRow("links") << R"({"roots":{"r":{"type":"url","name":"x","url":"https://x/"}}})"_ba << 0
                           << u"Imported 1 Chrome bookmark(s), with folders saved as Tavo collections.\n"_s
                           << QString();
    QTest::newRow("none") << "<html></html>"_ba << 1 << QString()
                          << u"No bookmarks found. Export Chrome bookmarks as HTML or choose a Chrome profile\u2019s "
                             u"Bookmarks file.\n"_s;
}

void TestTavoctlBrowser::importSaysHowItWent()
{
    QFETCH(QByteArray, data);
    const QString path = m_files.filePath(u"Bookmarks"_s);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(data);
    file.close();
    const Run run = tavoctl({u"import"_s, path});
    QTEST(run.status, "status");
    QTEST(run.out, "out");
    QTEST(run.err, "err");
}

void TestTavoctlBrowser::privateWorkspace()
{
    QCOMPARE(tavoctl({u"private"_s, u"status"_s}).out, u"Private Mode is not set up.\n"_s);
    Run run = tavoctl({u"private"_s, u"setup"_s}, "12345\n12345\n");
    QCOMPARE(run.err, u"Enter all six digits.\n"_s);
    run = tavoctl({u"private"_s, u"setup"_s}, "123456\n654321\n");
    QCOMPARE(run.status, 1);
    QCOMPARE(run.err, u"The passcodes do not match.\n"_s);
    QCOMPARE(tavoctl({u"private"_s, u"status"_s}).out, u"Private Mode is not set up.\n"_s);

    run = tavoctl({u"private"_s, u"setup"_s}, "123456\n123456\n");
    QCOMPARE(run.status, 0);
    QCOMPARE(tavoctl({u"private"_s, u"status"_s}).out, u"Private Mode is set up.\n"_s);
    QCOMPARE(tavoctl({u"private"_s, u"setup"_s}, "111111\n111111\n").status, 1);

    QCOMPARE(tavoctl({u"save"_s, u"https://public/"_s}).status, 0);
    auto normalValues = [] {
        Defaults settings;
        QList<QJsonValue> values;
        for (const QString& key :
             {BrowserKeys::tabs, BrowserKeys::collections, BrowserKeys::tabGroups, BrowserKeys::collapsedGroups,
              BrowserKeys::splitEnabled, BrowserKeys::splitSecondary}) {
            values.append(settings.value(key));
        }
        return values;
    };
    const QList<QJsonValue> normalBefore = normalValues();
    run = tavoctl({u"--private"_s, u"save"_s, u"https://hidden/"_s, u"--collection"_s, u"Stash"_s}, "123456\n");
    QCOMPARE(run.status, 0);
    QVERIFY(tavoctl({u"--private"_s, u"links"_s}, "123456\n").out.contains(u"https://hidden/"_s));
    QVERIFY(!tavoctl({u"--private"_s, u"links"_s}, "123456\n").out.contains(u"https://public/"_s));
    QVERIFY(!tavoctl({u"links"_s}).out.contains(u"https://hidden/"_s));
    QCOMPARE(normalValues(), normalBefore);
    Defaults settings;
    QVERIFY(!settings.string(BrowserKeys::tabs)->contains(u"hidden"_s));

    run = tavoctl({u"links"_s, u"--private"_s}, "123457\n");
    QCOMPARE(run.status, 1);
    QCOMPARE(run.err, u"That passcode did not unlock the private workspace.\n"_s);
    run = tavoctl({u"links"_s, u"--private"_s}, "1234\n");
    QCOMPARE(run.err, u"Enter all six digits.\n"_s);
}

void TestTavoctlBrowser::runningModelFollows()
{
    Defaults defaults;
    defaults.watchForChanges();
    TavoBrowserTabs running(defaults);
    QSignalSpy saved(&running, &TavoBrowserTabs::savedChanged);
    QCOMPARE(tavoctl({u"save"_s, u"https://seen-by-tavo/"_s}).status, 0);
    QTRY_VERIFY(!saved.isEmpty());
    QCOMPARE(running.saved().last().url, u"https://seen-by-tavo/"_s);
}

QTEST_GUILESS_MAIN(TestTavoctlBrowser)
#include "tst_tavoctl_browser.moc"
