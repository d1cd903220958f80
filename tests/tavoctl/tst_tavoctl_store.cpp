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
    void addFollowsTheEditorsRules_data();
    void addFollowsTheEditorsRules();
    void listFiltersAndPrintsJson();
    void listWritesNothing();
    void expandSaysWhatWouldHappen_data();
    void expandSaysWhatWouldHappen();
    void addWhileTheApplicationHoldsTheProfile();
    void accountFromTavoctlSignsInWhereAMissWasCached();

private:
    struct Run
    {
        int status;
        QString out;
        QString err;
    };
    static Run tavoctl(const QStringList& arguments, const QByteArray& input = {});
    static void registerSam();

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
    const Run run =
        tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("Sam")}, "correct horse\n");
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
    QDir(qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Tavo")).removeRecursively();
    QDir(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Quill")).removeRecursively();
    for (const char* name : {"sam", "alex"}) {
        QVERIFY(m_keyring.remove(KeyStore::service, TavoAccountStore::keyStoreAccount(QString::fromLatin1(name))).ok);
    }
    KeyStore::resetForTesting();
}

void TestTavoctlStore::nothingWithoutSignIn()
{
    for (const QStringList& arguments :
         {QStringList{QStringLiteral("list")},
          QStringList{QStringLiteral("add"), QStringLiteral("ty"), QStringLiteral("x")}}) {
        const Run run = tavoctl(arguments);
        QCOMPARE(run.status, 1);
        QCOMPARE(run.err, QStringLiteral("Sign in to Tavo first.\n"));
    }
    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("status")}).out, QStringLiteral("Signed out.\n"));
}

void TestTavoctlStore::registerChecksThePasswordFirst()
{
    const Run shortPassword =
        tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("sam")}, "seven77\n");
    QCOMPARE(shortPassword.status, 1);
    QCOMPARE(shortPassword.err, QStringLiteral("Use a password with at least 8 characters.\n"));

    const Run badName =
        tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("s!")}, "long enough\n");
    QCOMPARE(badName.status, 1);
    QCOMPARE(badName.err, QStringLiteral("Use 3–32 letters, numbers, periods, underscores, or hyphens.\n"));
    const SecretLookup stored =
        m_keyring.lookup(KeyStore::service, TavoAccountStore::keyStoreAccount(QStringLiteral("sam")));
    QCOMPARE(stored.outcome, SecretLookup::Outcome::NotFound);
}

void TestTavoctlStore::registerSignOutSignIn()
{
    registerSam();
    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("status")}).out, QStringLiteral("sam\n"));
    // Registering signs in, and signing in activates the profile.
    QVERIFY(QFile::exists(qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Quill/Profiles/") +
                          tavoProfileSlug(QStringLiteral("sam")) + QStringLiteral("/clips.json")));

    const Run again =
        tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("SAM")}, "whatever1\n");
    QCOMPARE(again.status, 1);
    QCOMPARE(again.err, QStringLiteral("That username already exists on this computer. Sign in instead.\n"));

    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("signout")}).out, QStringLiteral("Signed out.\n"));
    QCOMPARE(tavoctl({QStringLiteral("account"), QStringLiteral("status")}).out, QStringLiteral("Signed out.\n"));

    const Run wrong =
        tavoctl({QStringLiteral("account"), QStringLiteral("signin"), QStringLiteral("sam")}, "wrong horse\n");
    QCOMPARE(wrong.status, 1);
    QCOMPARE(wrong.err, QStringLiteral("Username or password is incorrect.\n"));
    const Run unknown =
        tavoctl({QStringLiteral("account"), QStringLiteral("signin"), QStringLiteral("nobody")}, "correct horse\n");
    QCOMPARE(unknown.err, wrong.err); // nothing tells whether the name exists

    const Run right =
        tavoctl({QStringLiteral("account"), QStringLiteral("signin"), QStringLiteral(" Sam ")}, "correct horse\n");
    QCOMPARE(right.status, 0);
    QCOMPARE(right.out, QStringLiteral("Welcome back, sam.\n"));
}

void TestTavoctlStore::addFollowsTheEditorsRules_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("line");
    QTest::newRow("no collection goes to Imported, name falls back to the key")
        << QStringList{QStringLiteral("\\hi"), QStringLiteral("Hello")} << "\\hi\t/hi\tImported";
    QTest::newRow("collection gives the key its suffix")
        << QStringList{QStringLiteral("docs.app"),     QStringLiteral("https://example.org"),
                       QStringLiteral("--collection"), QStringLiteral("Websites & URLs"),
                       QStringLiteral("--name"),       QStringLiteral("Docs")}
        << "\\docs.web\tDocs\tWebsites & URLs";
    QTest::newRow("a new collection") << QStringList{QStringLiteral("soup"), QStringLiteral("Tomato"),
                                                     QStringLiteral("--collection"), QStringLiteral("Recipes")}
                                      << "\\soup\t/soup\tRecipes";
}

void TestTavoctlStore::addFollowsTheEditorsRules()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, line);
    registerSam();
    const Run added = tavoctl(QStringList{QStringLiteral("add")} + arguments);
    QCOMPARE(added.status, 0);
    const Run listed = tavoctl({QStringLiteral("list")});
    QCOMPARE(listed.out.split(u'\n', Qt::SkipEmptyParts).last(), line);
}

void TestTavoctlStore::listFiltersAndPrintsJson()
{
    registerSam();
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("sig"), QStringLiteral("Best,\nSam"),
                      QStringLiteral("--collection"), QStringLiteral("Work")})
                 .status,
             0);
    const Run work = tavoctl({QStringLiteral("list"), QStringLiteral("--collection"), QStringLiteral("WORK")});
    QCOMPARE(work.out, QStringLiteral("\\intro\tQuick introduction\tWork\n\\sig\t/sig\tWork\n"));

    const Run json = tavoctl(
        {QStringLiteral("list"), QStringLiteral("--json"), QStringLiteral("--collection"), QStringLiteral("work")});
    const std::optional<QList<Clip>> clips = clipsFromJson(QJsonDocument::fromJson(json.out.toUtf8()).array());
    QVERIFY(clips);
    QCOMPARE(clips->size(), 2);
    QCOMPARE(clips->last().text, QStringLiteral("Best,\nSam"));

    QCOMPARE(tavoctl({QStringLiteral("list"), QStringLiteral("--bogus")}).status, 2);
}

void TestTavoctlStore::listWritesNothing()
{
    registerSam();
    const QString folder = qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Quill/Profiles/") +
                           tavoProfileSlug(QStringLiteral("sam"));
    const QString settings = qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Tavo/defaults.json");
    QHash<QString, QDateTime> before;
    for (const QFileInfo& file : QDir(folder).entryInfoList(QDir::Files)) {
        before.insert(file.fileName(), file.lastModified());
    }
    before.insert(settings, QFileInfo(settings).lastModified());
    QTest::qWait(20);
    QCOMPARE(tavoctl({QStringLiteral("list")}).status, 0);
    for (const QFileInfo& file : QDir(folder).entryInfoList(QDir::Files)) {
        QCOMPARE(file.lastModified(), before.value(file.fileName()));
    }
    QCOMPARE(QFileInfo(settings).lastModified(), before.value(settings));
}

void TestTavoctlStore::expandSaysWhatWouldHappen_data()
{
    QTest::addColumn<QString>("trigger");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("out");
    QTest::newRow("a start shortcut") << "\\intro" << 0 << "Hi, I’m Sam. Great to connect!\n";
    const QString hello = QStringLiteral("Hello from %1").arg(QDate::currentDate().year());
    QTest::newRow("a live token filled") << "/hello" << 0 << hello + u'\n';
    QTest::newRow("the calculator") << "\\2+3*4" << 0 << "14\n";
    QTest::newRow("a batch on separate lines")
        << "\\hello&intro" << 0 << hello + QStringLiteral("\nHi, I’m Sam. Great to connect!\n");
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
    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("hello"), QStringLiteral("Hello from {{year}}")}).status,
             0);
    {
        // A website shortcut as the editor saves one.
        Defaults defaults;
        DB db(defaults);
        db.activateProfile(QStringLiteral("sam"));
        Clip site;
        site.key = QStringLiteral("/docs.web");
        site.name = QStringLiteral("Docs");
        site.group = QStringLiteral("Websites & URLs");
        site.webURL = QStringLiteral("https://example.org/docs");
        db.setClips(QList<Clip>(db.clips()) << site);
        QVERIFY(db.save());
    }
    const Run run = tavoctl({QStringLiteral("expand"), trigger});
    QCOMPARE(run.status, status);
    QCOMPARE(run.out, out);
    if (status != 0) {
        QCOMPARE(run.err, QStringLiteral("No shortcut matches ") + trigger + QStringLiteral(".\n"));
    }
}

void TestTavoctlStore::addWhileTheApplicationHoldsTheProfile()
{
    registerSam();
    Defaults defaults;
    DB app(defaults);
    app.activateProfile(QStringLiteral("sam"));
    QTest::qWait(20);

    QCOMPARE(tavoctl({QStringLiteral("add"), QStringLiteral("fromctl"), QStringLiteral("Added by a script")}).status,
             0);

    // The application edits what it loaded before the script ran, and saves.
    QList<Clip> clips = app.clips();
    clips.first().text = QStringLiteral("Edited in Tavo");
    app.setClips(clips);
    QVERIFY(app.save());

    const Run listed = tavoctl({QStringLiteral("list"), QStringLiteral("--json")});
    const QList<Clip> onDisk =
        clipsFromJson(QJsonDocument::fromJson(listed.out.toUtf8()).array()).value_or(QList<Clip>());
    QCOMPARE(onDisk.size(), 5);
    QCOMPARE(onDisk.first().text, QStringLiteral("Edited in Tavo"));
    QCOMPARE(onDisk.last().key, QStringLiteral("/fromctl"));
}

void TestTavoctlStore::accountFromTavoctlSignsInWhereAMissWasCached()
{
    Defaults defaults;
    TavoAccountStore app(defaults);
    QVERIFY(!app.signIn(QStringLiteral("alex"), QStringLiteral("open sesame"))); // remembers the miss

    const Run made =
        tavoctl({QStringLiteral("account"), QStringLiteral("register"), QStringLiteral("alex")}, "open sesame\n");
    QCOMPARE(made.status, 0);

    QVERIFY(app.signIn(QStringLiteral("alex"), QStringLiteral("open sesame")));
    QCOMPARE(app.message(), QStringLiteral("Welcome back, alex."));
    // And the account this process has seen missing is not registered over.
    QVERIFY(!app.registerAccount(QStringLiteral("alex"), QStringLiteral("another one")));
}

QTEST_GUILESS_MAIN(TestTavoctlStore)
#include "tst_tavoctl_store.moc"
