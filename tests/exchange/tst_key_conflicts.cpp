#include "exchange/bulk_media.h"
#include "exchange/key_conflicts.h"

#include <QtTest>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

QList<Clip> clipsWithKeys(const QStringList& keys)
{
    QList<Clip> clips;
    for (const QString& key : keys) {
        Clip clip;
        clip.key = key;
        clip.name = key;
        clips.append(clip);
    }
    return clips;
}

} // namespace

// The one rule that keeps imported and bulk-made keys apart from those a library already uses.
class TestKeyConflicts : public QObject
{
    Q_OBJECT

private slots:
    void freeKey_data();
    void freeKey();
    void draftKey_data();
    void draftKey();
    void saveBulkMedia_data();
    void saveBulkMedia();
};

void TestKeyConflicts::freeKey_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("collection");
    QTest::addColumn<QStringList>("taken");
    QTest::addColumn<QString>("expected");

    QTest::newRow("free key stays") << u"/thanks"_s << u"Personal"_s << QStringList{u"/other"_s} << u"/thanks"_s;
    QTest::newRow("long free key stays as it is")
        << u"/abcdefghijklmnopqrstuvwxyz"_s << u"Personal"_s << QStringList() << u"/abcdefghijklmnopqrstuvwxyz"_s;
    QTest::newRow("taken gets -1") << u"/thanks"_s << u"Personal"_s << QStringList{u"/thanks"_s} << u"/thanks-1"_s;
    QTest::newRow("taken in another case") << u"/Thanks"_s << u"Work"_s << QStringList{u"/THANKS"_s} << u"/Thanks-1"_s;
    QTest::newRow("-1 taken too gives -2") << u"/a"_s << u"Personal"_s << QStringList{u"/a"_s, u"/A-1"_s} << u"/a-2"_s;
    QTest::newRow("number before the collection suffix")
        << u"/zoom.web"_s << u"Websites & URLs"_s << QStringList{u"/zoom.web"_s} << u"/zoom-1.web"_s;
    QTest::newRow("suffix of another collection is part of the stem")
        << u"/zoom.web"_s << u"Personal"_s << QStringList{u"/zoom.web"_s} << u"/zoom.web-1"_s;
    QTest::newRow("suffix kept in the key's own case")
        << u"/Zoom.WEB"_s << u"Websites & URLs"_s << QStringList{u"/zoom.web"_s} << u"/Zoom-1.WEB"_s;
    QTest::newRow("cut to 18 before -1") << u"/abcdefghijklmnopqrstuvwxyz"_s << u"Personal"_s
                                         << QStringList{u"/abcdefghijklmnopqrstuvwxyz"_s} << u"/abcdefghijklmnopq-1"_s;
    QTest::newRow("cut with a suffix stays within 20")
        << u"/abcdefghijklmnopqrst.media"_s << u"Media files"_s << QStringList{u"/abcdefghijklmnopqrst.media"_s}
        << u"/abcdefghijk-1.media"_s;
    QTest::newRow("two-digit number cuts one more")
        << u"/abcdefghijklmnopqrs"_s << u"Personal"_s
        << QStringList{u"/abcdefghijklmnopqrs"_s, u"/abcdefghijklmnopq-1"_s, u"/abcdefghijklmnopq-2"_s,
                       u"/abcdefghijklmnopq-3"_s, u"/abcdefghijklmnopq-4"_s, u"/abcdefghijklmnopq-5"_s,
                       u"/abcdefghijklmnopq-6"_s, u"/abcdefghijklmnopq-7"_s, u"/abcdefghijklmnopq-8"_s,
                       u"/abcdefghijklmnopq-9"_s}
        << u"/abcdefghijklmnop-10"_s;
    QTest::newRow("a surrogate pair is not split")
        << u"/abcdefghijklmnop\U0001F600z"_s << u"Personal"_s << QStringList{u"/abcdefghijklmnop\U0001F600z"_s}
        << u"/abcdefghijklmnop-1"_s;
}

void TestKeyConflicts::freeKey()
{
    QFETCH(QString, key);
    QFETCH(QString, collection);
    QFETCH(QStringList, taken);
    QFETCH(QString, expected);

    const QString free = tavo::freeKey(key, collection, TakenKeys(clipsWithKeys(taken)));
    QCOMPARE(free, expected);
    QVERIFY(free == key || free.size() <= proposedKeyLimit);
}

void TestKeyConflicts::draftKey_data()
{
    QTest::addColumn<QString>("fileName");
    QTest::addColumn<QString>("key");

    QTest::newRow("name without extension") << u"Logo.png"_s << u"/logo"_s;
    QTest::newRow("blanks and signs made one dash") << u"My  Summer (2024)!.jpg"_s << u"/my-summer-2024"_s;
    QTest::newRow("cut to 20 with the slash") << u"a-very-long-holiday-photo-name.jpg"_s << u"/a-very-long-holiday"_s;
    QTest::newRow("only the last extension goes") << u"archive.tar.gz"_s << u"/archive-tar"_s;
    QTest::newRow("nothing left") << u"ÄÖÜ.mov"_s << u"/media"_s;
}

void TestKeyConflicts::draftKey()
{
    QFETCH(QString, fileName);
    QFETCH(QString, key);
    QCOMPARE(bulkMediaDraftKey(fileName), key);
    QCOMPARE(bulkMediaDraft(u"/tmp/x/"_s + fileName).shortcut, key);
}

void TestKeyConflicts::saveBulkMedia_data()
{
    QTest::addColumn<QStringList>("shortcuts");
    QTest::addColumn<QString>("group");
    QTest::addColumn<QStringList>("existing");
    QTest::addColumn<QStringList>("keys");
    QTest::addColumn<QString>("savedGroup");

    QTest::newRow("blank group means Imported")
        << QStringList{u"logo"_s} << u" "_s << QStringList() << QStringList{u"/logo"_s} << u"Imported"_s;
    QTest::newRow("suffix of the media collection") << QStringList{u"\\logo"_s} << u"Media files"_s << QStringList()
                                                    << QStringList{u"/logo.media"_s} << u"Media files"_s;
    QTest::newRow("taken keys and repeats among drafts get numbers")
        << QStringList{u"/logo"_s, u"/LOGO"_s, u"/logo"_s} << u"Work"_s << QStringList{u"/logo"_s}
        << QStringList{u"/logo-1"_s, u"/LOGO-2"_s, u"/logo-3"_s} << u"Work"_s;
    QTest::newRow("a long key keeps its suffix within 20")
        << QStringList{u"/abcdefghijklmnopqrs"_s} << u"media files"_s << QStringList()
        << QStringList{u"/abcdefghijklm.media"_s} << u"media files"_s;
    QTest::newRow("a long taken key with suffix and number within 20")
        << QStringList{u"/abcdefghijklmnopqrs"_s} << u"Media files"_s << QStringList{u"/abcdefghijklm.media"_s}
        << QStringList{u"/abcdefghijk-1.media"_s} << u"Media files"_s;
}

void TestKeyConflicts::saveBulkMedia()
{
    QFETCH(QStringList, shortcuts);
    QFETCH(QString, group);
    QFETCH(QStringList, existing);
    QFETCH(QStringList, keys);
    QFETCH(QString, savedGroup);

    QList<BulkMediaDraft> drafts;
    for (const QString& shortcut : shortcuts) {
        BulkMediaDraft draft = bulkMediaDraft(u"/data/Attachments/"_s + shortcut.mid(1) + u".png"_s);
        draft.shortcut = shortcut;
        drafts.append(draft);
    }
    const BulkMediaSave saved = tavo::saveBulkMedia(drafts, group, clipsWithKeys(existing));
    QCOMPARE(saved.clips.size(), drafts.size());
    QStringList made;
    for (qsizetype i = 0; i < saved.clips.size(); ++i) {
        const Clip& clip = saved.clips[i];
        made.append(clip.key);
        QVERIFY(clip.key.size() <= proposedKeyLimit);
        QCOMPARE(clip.group, savedGroup);
        QCOMPARE(clip.files, QStringList{drafts[i].mediaPath});
        QCOMPARE(clip.directMediaPaste, std::optional(true));
        QVERIFY(clip.text.isEmpty());
        QCOMPARE(clip.name, drafts[i].name);
    }
    QCOMPARE(made, keys);
    QCOMPARE(saved.status,
             u"Created %1 media shortcuts in %2. Type each shortcut to paste its file."_s.arg(drafts.size())
                 .arg(savedGroup));
}

QTEST_GUILESS_MAIN(TestKeyConflicts)
#include "tst_key_conflicts.moc"
