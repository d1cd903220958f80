#include "platform/secret/libsecret_store.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QProcess>
#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

// tavoctl's account and library commands as a user or a provisioning script runs them, against
// the real keyring, and beside a running application's store over the same files.
class TestTavoctlStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void nothingWithoutSignIn();
    void registerChecksThePasswordFirst();
    void registerSignOutSignIn();
    void addFollowsTheEditorsRulesAndListFilters();
    void listWritesNothing();
    void expandSaysWhatWouldHappen_data();
    void expandSaysWhatWouldHappen();
    void addWhileTheApplicationHoldsTheProfile();

private:
    struct Run
    {
        int status;
        QString out;
        QString err;
    };
    static Run tavoctl(const QStringList& arguments, const QByteArray& input = {});
    static void registerSam();
    static QString profileFolder()
    {
        return qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill/Profiles/"_s + tavoProfileSlug(u"sam"_s);
    }

    LibsecretStore m_keyring;
};

TestTavoctlStore::Run TestTavoctlStore::tavoctl(const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(QStringLiteral(TAVOCTL_PATH), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(30000)) {
        return {-1, {}, {}};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

void TestTavoctlStore::registerSam()
{
    const Run run = tavoctl({u"account"_s, u"register"_s, u"Sam"_s}, "correct horse\n");
    QCOMPARE(run.err, QString());
    QCOMPARE(run.status, 0);
}

void TestTavoctlStore::initTestCase()
{
    KeyStore::setBackend(&m_keyring);
}

void TestTavoctlStore::init()
{
    // Every case starts from an empty machine: no settings, no profiles, no accounts.
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo"_s).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + u"/Quill"_s).removeRecursively();
    QVERIFY(m_keyring.remove(KeyStore::service, TavoAccountStore::keyStoreAccount(u"sam"_s)).ok);
    KeyStore::resetForTesting();
}

void TestTavoctlStore::nothingWithoutSignIn()
{
    for (const QStringList& arguments : {QStringList{u"list"_s}, QStringList{u"add"_s, u"ty"_s, u"x"_s}}) {
        const Run run = tavoctl(arguments);
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, u"Sign in to Tavo first.\n"_s);
    }
    QCOMPARE(tavoctl({u"account"_s, u"status"_s}).out, u"Signed out.\n"_s);
}

void TestTavoctlStore::registerChecksThePasswordFirst()
{
    const Run run = tavoctl({u"account"_s, u"register"_s, u"sam"_s}, "seven77\n");
    QCOMPARE(run.status, 1);
    QCOMPARE(run.err, u"Use a password with at least 8 characters.\n"_s);
    QCOMPARE(m_keyring.lookup(KeyStore::service, TavoAccountStore::keyStoreAccount(u"sam"_s)).outcome,
             SecretLookup::Outcome::NotFound);
}

void TestTavoctlStore::registerSignOutSignIn()
{
    registerSam();
    QCOMPARE(tavoctl({u"account"_s, u"status"_s}).out, u"sam\n"_s);
    // Registering signs in, and signing in activates the profile.
    QVERIFY(QFile::exists(profileFolder() + u"/clips.json"_s));

    const Run again = tavoctl({u"account"_s, u"register"_s, u"SAM"_s}, "whatever1\n");
    QCOMPARE(again.status, 1);
    QCOMPARE(again.err, u"That username already exists on this computer. Sign in instead.\n"_s);

    QCOMPARE(tavoctl({u"account"_s, u"signout"_s}).out, u"Signed out.\n"_s);
    QCOMPARE(tavoctl({u"account"_s, u"status"_s}).out, u"Signed out.\n"_s);

    const Run wrong = tavoctl({u"account"_s, u"signin"_s, u"sam"_s}, "wrong horse\n");
    QCOMPARE(wrong.status, 1);
    QCOMPARE(wrong.err, u"Username or password is incorrect.\n"_s);
    const Run right = tavoctl({u"account"_s, u"signin"_s, u" Sam "_s}, "correct horse\n");
    QCOMPARE(right.status, 0);
    QCOMPARE(right.out, u"Welcome back, sam.\n"_s);
}

void TestTavoctlStore::addFollowsTheEditorsRulesAndListFilters()
{
    registerSam();
    // No collection: Imported, and the name falls back to the key. A collection gives the key its suffix.
    const QList<std::pair<QStringList, QString>> adds{
        {{u"\\hi"_s, u"Hello"_s}, u"\\hi\t/hi\tImported"_s},
        {{u"docs.app"_s, u"https://example.org"_s, u"--collection"_s, u"Websites & URLs"_s, u"--name"_s, u"Docs"_s},
         u"\\docs.web\tDocs\tWebsites & URLs"_s}};
    for (const auto& [arguments, line] : adds) {
        QCOMPARE(tavoctl(QStringList{u"add"_s} + arguments).status, 0);
        QCOMPARE(tavoctl({u"list"_s}).out.split(u'\n', Qt::SkipEmptyParts).last(), line);
    }

    QCOMPARE(tavoctl({u"add"_s, u"sig"_s, u"Best,\nSam"_s, u"--collection"_s, u"Work"_s}).status, 0);
    const Run work = tavoctl({u"list"_s, u"--collection"_s, u"WORK"_s});
    QCOMPARE(work.out, u"\\intro\tQuick introduction\tWork\n\\sig\t/sig\tWork\n"_s);

    const Run json = tavoctl({u"list"_s, u"--json"_s, u"--collection"_s, u"work"_s});
    const std::optional<QList<Clip>> clips = clipsFromJson(QJsonDocument::fromJson(json.out.toUtf8()).array());
    QVERIFY(clips);
    QCOMPARE(clips->size(), 2);
    QCOMPARE(clips->last().text, u"Best,\nSam"_s);

    QCOMPARE(tavoctl({u"list"_s, u"--bogus"_s}).status, 2);
}

void TestTavoctlStore::listWritesNothing()
{
    registerSam();
    QFileInfoList files = QDir(profileFolder()).entryInfoList(QDir::Files);
    files.append(QFileInfo(qEnvironmentVariable("XDG_CONFIG_HOME") + u"/Tavo/defaults.json"_s));
    QList<QDateTime> before;
    for (const QFileInfo& file : files) {
        before.append(file.lastModified());
    }
    QTest::qWait(20);
    QCOMPARE(tavoctl({u"list"_s}).status, 0);
    for (qsizetype i = 0; i < files.size(); ++i) {
        QCOMPARE(QFileInfo(files[i].filePath()).lastModified(), before[i]);
    }
    QCOMPARE(QDir(profileFolder()).entryInfoList(QDir::Files).size(), files.size() - 1);
}

void TestTavoctlStore::expandSaysWhatWouldHappen_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    // A live token filled, and a start shortcut, on separate lines.
    QTest::newRow("a batch") << "\\hello&intro" << 0
                             << u"Hello from %1\nHi, I’m Sam. Great to connect!\n"_s.arg(QDate::currentDate().year());
    QTest::newRow("a website") << "\\docs.web" << 0 << "Opens https://example.org/docs\n";
    QTest::newRow("an inline command") << "\\p" << 0 << "Runs the inline command \\p.\n";
    QTest::newRow("nothing") << "\\nothing" << 1 << "";
}

void TestTavoctlStore::expandSaysWhatWouldHappen()
{
    QFETCH(QString, trigger);
    QFETCH(int, status);
    QFETCH(QString, out);
    registerSam();
    QCOMPARE(tavoctl({u"add"_s, u"hello"_s, u"Hello from {{year}}"_s}).status, 0);
    {
        // A website shortcut as the editor saves one.
        Defaults defaults;
        DB db(defaults);
        db.activateProfile(u"sam"_s);
        Clip site;
        site.key = u"/docs.web"_s;
        site.name = u"Docs"_s;
        site.group = u"Websites & URLs"_s;
        site.webURL = u"https://example.org/docs"_s;
        db.setClips(QList<Clip>(db.clips()) << site);
        QVERIFY(db.save());
    }
    const Run run = tavoctl({u"expand"_s, trigger});
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, out);
    if (status != 0) {
        QCOMPARE(run.err, u"No shortcut matches "_s + trigger + u".\n"_s);
    }
}

void TestTavoctlStore::addWhileTheApplicationHoldsTheProfile()
{
    registerSam();
    Defaults defaults;
    DB app(defaults);
    app.activateProfile(u"sam"_s);
    QTest::qWait(20);

    QCOMPARE(tavoctl({u"add"_s, u"fromctl"_s, u"Added by a script"_s}).status, 0);

    // The application edits what it loaded before the script ran, and saves.
    QList<Clip> clips = app.clips();
    clips.first().text = u"Edited in Tavo"_s;
    app.setClips(clips);
    QVERIFY(app.save());

    const Run listed = tavoctl({u"list"_s, u"--json"_s});
    const QList<Clip> onDisk =
        clipsFromJson(QJsonDocument::fromJson(listed.out.toUtf8()).array()).value_or(QList<Clip>());
    QCOMPARE(onDisk.size(), 5);
    QCOMPARE(onDisk.first().text, u"Edited in Tavo"_s);
    QCOMPARE(onDisk.last().key, u"/fromctl"_s);
}

QTEST_GUILESS_MAIN(TestTavoctlStore)
#include "tst_tavoctl_store.moc"
