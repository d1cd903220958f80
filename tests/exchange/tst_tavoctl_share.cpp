#include "exchange/shared_shortcut.h"
#include "platform/zip/zip_reader.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/scorecard.h"

#include <QDirIterator>
#include <QProcess>
#include <QRegularExpression>
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

Run tavoctl(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    if (!process.waitForFinished(30000)) {
        process.kill();
        process.waitForFinished();
        return {};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QString home()
{
    return qEnvironmentVariable("HOME");
}

QByteArray readBytes(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file of the profile and the settings with its content.
QMap<QString, QByteArray> snapshot()
{
    QMap<QString, QByteArray> files;
    for (const QString& root : QStringList{qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s,
                                           qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s}) {
        QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            files.insert(path, readBytes(path));
        }
    }
    return files;
}

// The title and keys of the package at `path`.
std::optional<TavoSharedShortcutBundle> bundleIn(const QString& path)
{
    const Result<std::shared_ptr<ZipReader>> reader = ZipReader::open(path);
    if (!reader) {
        return std::nullopt;
    }
    for (const ZipEntry& entry : (*reader)->entries()) {
        if (entry.name.endsWith(u"/collection.json"_s) && entry.name.count(u'/') == 1) {
            const Result<QByteArray> json = (*reader)->read(entry.name, 1 << 20);
            return json ? TavoSharedShortcutBundle::fromJsonBytes(*json) : std::nullopt;
        }
    }
    return std::nullopt;
}

QStringList keysOf(const QList<Clip>& clips)
{
    QStringList keys;
    for (const Clip& clip : clips) {
        keys.append(clip.key);
    }
    return keys;
}

} // namespace

// tavoctl export and import as a user runs them: the real binary over a signed-in profile.
class TestTavoctlShare : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void exportPackage_data();
    void exportPackage();
    void importPackage();
    void refusedImportChangesNothing();
    void withoutAccount_data();
    void withoutAccount();

private:
    QString m_attachment;
};

void TestTavoctlShare::init()
{
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s).removeRecursively();
    QDir(home() + u"/out"_s).removeRecursively();
    QDir().mkpath(home() + u"/out"_s);
    QDir temp(QDir::tempPath());
    for (const QString& name : temp.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden)) {
        QVERIFY(QFileInfo(temp.filePath(name)).isDir() ? QDir(temp.filePath(name)).removeRecursively()
                                                       : temp.remove(name));
    }

    // Sam's library: a shortcut with a file in Work, one in Personal, a website.
    Defaults defaults;
    TavoAccountStore(defaults).accept(u"sam"_s);
    DB db(defaults);
    db.activateProfile(u"sam"_s);
    QDir().mkpath(db.attachmentsDir());
    m_attachment = db.attachmentsDir() + u"/0000-logo.png"_s;
    QFile file(m_attachment);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("logo bytes");
    file.close();
    Clip a;
    a.key = u"/a"_s;
    a.name = u"A"_s;
    a.group = u"Work"_s;
    a.files = {m_attachment};
    Clip b;
    b.key = u"/b"_s;
    b.name = u"B"_s;
    b.text = u"bee"_s;
    Clip site;
    site.key = u"/c.web"_s;
    site.name = u"C"_s;
    site.group = u"Websites & URLs"_s;
    site.webURL = u"https://c.test"_s;
    QVERIFY(db.updateClips([&](QList<Clip>& clips) { clips = {a, b, site}; }));
}

void TestTavoctlShare::exportPackage_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("fileName"); // a pattern; empty: no package
    QTest::addColumn<QString>("title");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("err");

    const QStringList all{u"/a"_s, u"/b"_s, u"/c.web"_s};
    QTest::newRow("everything by default") << QStringList{u"export"_s} << 0 << u"^Tavo-Tavo-shortcuts-\\w+\\.zip$"_s
                                           << u"Tavo shortcuts"_s << all << QString();
    QTest::newRow("All collections") << QStringList{u"export"_s, u"--collection"_s, u"all collections"_s} << 0
                                     << u"^Tavo-Tavo-shortcuts-\\w+\\.zip$"_s << u"Tavo shortcuts"_s << all
                                     << QString();
    QTest::newRow("a collection in any case")
        << QStringList{u"export"_s, u"--collection"_s, u"WORK"_s} << 0 << u"^Tavo-Work-\\w+\\.zip$"_s << u"Work"_s
        << QStringList{u"/a"_s} << QString();
    QTest::newRow("every --key counts, in the library's order")
        << QStringList{u"export"_s, u"--key"_s, u"\\C.web"_s, u"--key"_s, u"a"_s} << 0
        << u"^Tavo-Tavo-selected-shortcuts-\\w+\\.zip$"_s << u"Tavo selected shortcuts"_s
        << QStringList{u"/a"_s, u"/c.web"_s} << QString();
    QTest::newRow("own title and output file")
        << QStringList{u"export"_s, u"--title"_s, u"Gifts for Mum"_s, u"--out=out/gifts.zip"_s} << 0
        << u"^gifts\\.zip$"_s << u"Gifts for Mum"_s << all << QString();
    QTest::newRow("unknown collection") << QStringList{u"export"_s, u"--collection"_s, u"Nope"_s} << 1 << QString()
                                        << QString() << QStringList() << u"No collection is named Nope.\n"_s;
    QTest::newRow("unknown key") << QStringList{u"export"_s, u"--key"_s, u"/a"_s, u"--key"_s, u"zz"_s} << 1 << QString()
                                 << QString() << QStringList() << u"No shortcut has the key \\zz.\n"_s;
    QTest::newRow("a collection without shortcuts")
        << QStringList{u"export"_s, u"--collection"_s, u"Emoticons"_s} << 1 << QString() << QString() << QStringList()
        << u"Select at least one shortcut to share.\n"_s;
    QTest::newRow("output folder missing")
        << QStringList{u"export"_s, u"--out"_s, u"missing/x.zip"_s} << 1 << QString() << QString() << QStringList()
        << u"Could not prepare sharing package: Tavo could not prepare the collection package.\n"_s;
}

void TestTavoctlShare::exportPackage()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, fileName);
    QFETCH(QString, title);
    QFETCH(QStringList, keys);
    QFETCH(QString, err);

    QDir::setCurrent(home());
    const Run run = tavoctl(arguments);
    QCOMPARE(run.err, err);
    QCOMPARE(run.status, status);
    Defaults defaults;
    const qint64 counted = storedMetric(defaults, u"sam"_s, Metric::sharePackages);
    if (status != 0) {
        QCOMPARE(run.out, QString());
        QCOMPARE(counted, 0);
        QCOMPARE(QDir(QDir::tempPath()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
                 QStringList());
        return;
    }
    QVERIFY(run.out.endsWith(u'\n'));
    const QString path = run.out.chopped(1);
    QVERIFY2(QDir::isAbsolutePath(path), qPrintable(path));
    QVERIFY2(QRegularExpression(fileName).match(QFileInfo(path).fileName()).hasMatch(), qPrintable(path));
    if (!arguments.join(u' ').contains(u"--out"_s)) {
        QCOMPARE(QFileInfo(path).absolutePath(), QDir(QDir::tempPath()).absolutePath());
    }
    const std::optional<TavoSharedShortcutBundle> bundle = bundleIn(path);
    QVERIFY(bundle);
    QCOMPARE(bundle->title, title);
    QStringList packed;
    for (const TavoSharedShortcut& shortcut : bundle->shortcuts) {
        packed.append(shortcut.key);
    }
    QCOMPARE(packed, keys);
    // The scorecard counts the shortcuts placed in packages.
    QCOMPARE(counted, keys.size());
}

void TestTavoctlShare::importPackage()
{
    const Run exported = tavoctl({u"export"_s, u"--out"_s, home() + u"/out/all.zip"_s});
    QCOMPARE(exported.err, QString());
    QCOMPARE(exported.status, 0);

    const Run imported = tavoctl({u"import"_s, home() + u"/out/all.zip"_s});
    QCOMPARE(imported.err, QString());
    QCOMPARE(imported.out, u"Imported 3 shortcut(s) with their attached media.\n"_s);
    QCOMPARE(imported.status, 0);

    Defaults defaults;
    DB db(defaults, QString(), DB::Access::ReadOnly);
    db.activateProfile(u"sam"_s);
    QCOMPARE(keysOf(db.clips()), (QStringList{u"/a-1"_s, u"/b-1"_s, u"/c-1.web"_s, u"/a"_s, u"/b"_s, u"/c.web"_s}));
    const Clip& copy = db.clips().first();
    QCOMPARE(copy.files.size(), 1);
    QVERIFY(copy.files.first() != m_attachment);
    QCOMPARE(QFileInfo(copy.files.first()).absolutePath(), db.attachmentsDir());
    QCOMPARE(readBytes(copy.files.first()), QByteArray("logo bytes"));
    QCOMPARE(copy.directMediaPaste, std::optional(true));
    QCOMPARE(db.clips().at(3).files, QStringList{m_attachment});
    QCOMPARE(QDir(QDir::tempPath()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden), QStringList());
}

void TestTavoctlShare::refusedImportChangesNothing()
{
    const QString bogus = home() + u"/out/bogus.zip"_s;
    QFile file(bogus);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("PK not really");
    file.close();
    const QMap<QString, QByteArray> before = snapshot();

    for (const QString& path : QStringList{bogus, home() + u"/out/missing.zip"_s}) {
        const Run run = tavoctl({u"import"_s, path});
        QCOMPARE(run.out, QString());
        QCOMPARE(run.err, u"Could not import shortcut package: This file is not a valid Tavo collection package.\n"_s);
        QCOMPARE(run.status, 1);
    }
    QCOMPARE(snapshot(), before);
}

void TestTavoctlShare::withoutAccount_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("export") << QStringList{u"export"_s};
    QTest::newRow("import") << QStringList{u"import"_s, u"x.zip"_s};
}

void TestTavoctlShare::withoutAccount()
{
    QFETCH(QStringList, arguments);
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    const Run run = tavoctl(arguments);
    QCOMPARE(run.out, QString());
    QCOMPARE(run.err, u"Sign in to Tavo first.\n"_s);
    QCOMPARE(run.status, 1);
}

QTEST_GUILESS_MAIN(TestTavoctlShare)
#include "tst_tavoctl_share.moc"
