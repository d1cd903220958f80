#include "exchange/shortcut_share.h"
#include "shell/bulk_media_sheet.h"
#include "shell/bulk_sheet.h"
#include "shell/exchange_actions.h"
#include "shell/file_chooser.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QtTest>

using namespace tavo;

namespace {

// Answers every dialog with the paths the test gives, in order.
class AnsweringChooser final : public FileChooser
{
public:
    QStringList answers;
    QList<FileRequest> asked;

    QString openFile(QWidget*, const FileRequest& request) override { return next(request); }
    QStringList openFiles(QWidget*, const FileRequest& request) override
    {
        asked << request;
        return std::exchange(answers, {});
    }
    QString saveFile(QWidget*, const FileRequest& request) override
    {
        return withSuffix(next(request), request.suffix);
    }

private:
    QString next(const FileRequest& request)
    {
        asked << request;
        return answers.isEmpty() ? QString() : answers.takeFirst();
    }
};

Clip textClip(const QString& key, const QString& text, const QString& group = QStringLiteral("Personal"))
{
    Clip clip;
    clip.key = key;
    clip.name = key.mid(1);
    clip.text = text;
    clip.group = group;
    return clip;
}

} // namespace

class TestExchangeScreens : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void pastedURLs_data();
    void pastedURLs();
    void bulkMediaLimits_data();
    void bulkMediaLimits();
    void bulkMediaSavesAndCancelLeavesNothing();
    void bulkSheetImports_data();
    void bulkSheetImports();
    void packagesThroughTheWindowActions();

private:
    QString makeFile(const QString& name, qint64 size);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
    AnsweringChooser m_chooser;
};

void TestExchangeScreens::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(QStringLiteral("defaults.json")));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(QStringLiteral("Tavo")));
    m_db->setCollections({QStringLiteral("Personal"), QStringLiteral("Work")});
    m_db->setClips({textClip(QStringLiteral("/ty"), QStringLiteral("Thank you"))});
    QVERIFY(m_db->save());
    m_chooser = AnsweringChooser();
    FileChooser::setInstance(&m_chooser);
}

void TestExchangeScreens::cleanup()
{
    FileChooser::setInstance(nullptr);
    m_db.reset();
}

QString TestExchangeScreens::makeFile(const QString& name, qint64 size)
{
    const QString path = m_dir->filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || !file.write("media") || !file.resize(size)) { // sparse past the bytes
        return {};
    }
    return path;
}

void TestExchangeScreens::pastedURLs_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("first");
    QTest::newRow("lines and semicolons")
        << "https://a.test/1.png\nhttp://b.test/2.mp3; https://c.test/3.mp4" << 3 << "https://a.test/1.png";
    QTest::newRow("other schemes and words dropped")
        << "ftp://a.test/x.png\nfile:///etc/passwd\njust words\r\nhttps://ok.test/y.gif" << 1
        << "https://ok.test/y.gif";
    QString eleven;
    for (int n = 1; n <= 11; ++n) {
        eleven += QStringLiteral("https://m.test/%1.png\n").arg(n);
    }
    QTest::newRow("an eleventh is left out") << eleven << 10 << "https://m.test/1.png";
    QTest::newRow("nothing") << "  ;\n\n" << 0 << QString();
}

void TestExchangeScreens::pastedURLs()
{
    QFETCH(QString, text);
    const QStringList urls = BulkMediaSheet::pastedURLs(text);
    QCOMPARE(urls.size(), qsizetype(QTest::currentDataTag() == QByteArray("nothing") ? 0 : urls.size()));
    QFETCH(int, count);
    QCOMPARE(urls.size(), count);
    QFETCH(QString, first);
    QCOMPARE(urls.value(0), first);
}

void TestExchangeScreens::bulkMediaLimits_data()
{
    QTest::addColumn<QList<qint64>>("sizes");
    QTest::addColumn<QString>("status");
    QTest::addColumn<int>("drafts");
    const qint64 mb = 1024 * 1024;
    QTest::newRow("eleven files") << QList<qint64>(11, 10) << "Tavo can create up to 10 media shortcuts at a time."
                                  << 0;
    QTest::newRow("one file over the limit") << QList<qint64>{501 * mb} << "That file is over the 500 MB limit." << 0;
    QTest::newRow("a set with one over") << QList<qint64>{10, 501 * mb} << "A media file is over the 500 MB limit."
                                         << 0;
    QTest::newRow("ten small files") << QList<qint64>(10, 10) << QString() << 10;
}

void TestExchangeScreens::bulkMediaLimits()
{
    QFETCH(QList<qint64>, sizes);
    QFETCH(QString, status);
    QFETCH(int, drafts);
    QStringList files;
    for (qsizetype n = 0; n < sizes.size(); ++n) {
        files << makeFile(QStringLiteral("clip %1.png").arg(n), sizes[n]);
        QVERIFY(!files.last().isEmpty());
    }
    BulkMediaSheet sheet(*m_db);
    sheet.addFiles(files);
    QTRY_VERIFY(!sheet.isWorking());
    QCOMPARE(sheet.status(), status);
    QCOMPARE(sheet.pending().size(), drafts);
    // Refused files are never copied; accepted ones are, into the profile.
    QCOMPARE(QDir(m_db->attachmentsDir()).entryList(QDir::Files).size(), drafts);
}

void TestExchangeScreens::bulkMediaSavesAndCancelLeavesNothing()
{
    const QStringList files{makeFile(QStringLiteral("Team Photo.png"), 64), makeFile(QStringLiteral("ty.mp3"), 64)};
    {
        BulkMediaSheet sheet(*m_db);
        sheet.addFiles(files);
        QTRY_COMPARE(sheet.pending().size(), 2);
        QCOMPARE(sheet.findChild<QPushButton*>(QStringLiteral("bulkMediaSave"))->isEnabled(), true);
        QVERIFY(sheet.findChild<QLabel*>(QStringLiteral("bulkMediaCollectionNote"))->isVisibleTo(&sheet));
        auto* collection = sheet.findChild<QComboBox*>(QStringLiteral("bulkMediaCollection"));
        collection->setCurrentIndex(collection->findData(QStringLiteral("Work")));
        QSignalSpy saved(&sheet, &BulkMediaSheet::saved);
        sheet.accept();
        QCOMPARE(saved.size(), 1);
        QCOMPARE(saved.first().first().toString(),
                 QStringLiteral("Created 2 media shortcuts in Work. Type each shortcut to paste its file."));
    }
    // /ty is taken: the new one gets a number, and both paste their file directly.
    QCOMPARE(m_db->clips().size(), 3);
    QStringList keys;
    for (const Clip& clip : m_db->clips().mid(1)) {
        keys << clip.key;
        QCOMPARE(clip.group, QStringLiteral("Work"));
        QCOMPARE(clip.directMediaPaste, std::optional<bool>(true));
        QCOMPARE(clip.files.size(), 1);
        QVERIFY(clip.files.first().startsWith(m_db->attachmentsDir()));
        QVERIFY(QFileInfo::exists(clip.files.first()));
    }
    QVERIFY2(!keys.contains(QStringLiteral("/ty")), qPrintable(keys.join(QLatin1Char(' '))));

    const QStringList before = QDir(m_db->attachmentsDir()).entryList(QDir::Files);
    {
        BulkMediaSheet sheet(*m_db);
        sheet.addFiles({files.first()});
        QTRY_COMPARE(sheet.pending().size(), 1);
        sheet.reject();
    }
    QCOMPARE(QDir(m_db->attachmentsDir()).entryList(QDir::Files), before);
    QCOMPARE(m_db->clips().size(), 3);
}

void TestExchangeScreens::bulkSheetImports_data()
{
    QTest::addColumn<bool>("fromLargeFile");
    QTest::newRow("pasted rows") << false;
    QTest::newRow("a file too large for the text box") << true;
}

void TestExchangeScreens::bulkSheetImports()
{
    QFETCH(bool, fromLargeFile);
    QString csv = QStringLiteral("shortcut,expansion,name,collection,media URLs\n/hi,\"Hello, there\",Hi,Work,\n");
    const int filler = fromLargeFile ? 14000 : 1;
    for (int n = 0; n < filler; ++n) {
        csv +=
            QStringLiteral("/r%1,Row %1 text that is long enough to grow the file past a megabyte quickly,,,\n").arg(n);
    }
    BulkSheet sheet(*m_db);
    if (fromLargeFile) {
        const QString path = m_dir->filePath(QStringLiteral("rows.csv"));
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(csv.toUtf8());
        file.close();
        QVERIFY(file.size() > BulkSheet::textBoxLimit);
        sheet.openFile(path);
        QVERIFY(sheet.findChild<QPlainTextEdit*>(QStringLiteral("bulkText"))->toPlainText().isEmpty());
    } else {
        sheet.findChild<QPlainTextEdit*>(QStringLiteral("bulkText"))->setPlainText(csv);
    }
    QSignalSpy imported(&sheet, &BulkSheet::imported);
    sheet.startImport();
    QVERIFY(sheet.isImporting());
    QTRY_COMPARE_WITH_TIMEOUT(imported.size(), 1, 20000);
    QCOMPARE(imported.first().first().toString(),
             QStringLiteral("Imported %1 shortcuts · 0 media downloaded").arg(filler + 1));
    QCOMPARE(m_db->clips().size(), filler + 2);
    QCOMPARE(m_db->clips().at(1).text, QStringLiteral("Hello, there"));
    QCOMPARE(m_db->clips().at(1).group, QStringLiteral("Work"));
    QCOMPARE(m_db->clips().at(2).group, QStringLiteral("Imported"));
}

void TestExchangeScreens::packagesThroughTheWindowActions()
{
    QWidget window;
    TavoAccountStore accounts(*m_defaults);
    ExchangeActions actions(*m_db, accounts, &window);
    QSignalSpy notices(&actions, &ExchangeActions::notice);
    QSignalSpy warnings(&actions, &ExchangeActions::warning);

    actions.shareShortcuts(ShareText::selectedShortcutsTitle, {});
    QCOMPARE(warnings.takeFirst().first().toString(), QStringLiteral("Select at least one shortcut to share."));

    // A package made of this library, imported back through the dialog: the key gets a number.
    const Result<QString> package = TavoShortcutShare::makeArchive(m_db->clips(), QStringLiteral("Mine"), std::nullopt,
                                                                   m_dir->filePath(QStringLiteral("mine.zip")));
    QVERIFY2(package, package ? "" : qPrintable(package.error().description));
    m_chooser.answers = {*package};
    actions.importSharedShortcut();
    QCOMPARE(m_chooser.asked.last().caption, QStringLiteral("Choose an Tavo shortcut or collection package (.zip)."));
    QTRY_VERIFY(!actions.isBusy());
    QVERIFY2(warnings.isEmpty(), qPrintable(warnings.value(0).value(0).toString()));
    QCOMPARE(notices.last().first().toString(), QStringLiteral("Imported 1 shortcut(s) with their attached media."));
    QCOMPARE(m_db->clips().size(), 2);
    QCOMPARE(m_db->clips().first().key, QStringLiteral("/ty-1")); // imports go first

    // The CSV export names its file with the suffix the user left out.
    m_chooser.answers = {m_dir->filePath(QStringLiteral("export"))};
    actions.exportCSV();
    QTRY_VERIFY(!actions.isBusy());
    QCOMPARE(notices.last().first().toString(), QStringLiteral("Exported 2 shortcuts to export.csv"));
    QVERIFY(QFileInfo::exists(m_dir->filePath(QStringLiteral("export.csv"))));
}

QTEST_MAIN(TestExchangeScreens)
#include "tst_exchange_screens.moc"
