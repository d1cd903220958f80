#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/seeds.h"

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <memory>

using namespace tavo;
using namespace Qt::StringLiterals;

namespace {

const QString appId = u"tavo.desktop"_s;
const QString appPath = u"/opt/tavo/bin/tavo"_s;

qsizetype indexOf(const QList<Clip>& clips, const QString& key)
{
    const auto it = std::find_if(clips.cbegin(), clips.cend(), [&](const Clip& clip) { return clip.key == key; });
    return it == clips.cend() ? -1 : it - clips.cbegin();
}

QList<QUuid> idsOf(const QList<Clip>& clips)
{
    QList<QUuid> ids;
    std::transform(clips.cbegin(), clips.cend(), std::back_inserter(ids), [](const Clip& clip) { return clip.id; });
    return ids;
}

Clip userClip(const QString& key)
{
    Clip clip;
    clip.key = key;
    clip.name = u"Mine"_s;
    clip.text = u"my text"_s;
    return clip;
}

} // namespace

class TestSeeds : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void seedingTwiceAddsNothing();
    void seededClip_data();
    void seededClip();
    void userKeys_data();
    void userKeys();
    void editedSeedStaysAndDeletedSeedReturns();
    void openTavoReplacedInPlace();
    void collectionsAddedOnceIgnoringCase();

private:
    const Clip& clip(const QString& key) const { return m_db->clips().at(indexOf(m_db->clips(), key)); }
    void seed() { seedDefaultShortcuts(*m_db, appId, appPath); }
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<Defaults> m_defaults;
    std::unique_ptr<DB> m_db;
};

void TestSeeds::init()
{
    m_db.reset(); // it refers to the settings about to be replaced
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    m_defaults = std::make_unique<Defaults>(m_dir->filePath(u"config/defaults.json"_s));
    m_db = std::make_unique<DB>(*m_defaults, m_dir->filePath(u"Quill"_s));
}

void TestSeeds::seedingTwiceAddsNothing()
{
    const qsizetype before = m_db->clips().size();
    seed();
    QCOMPARE(m_db->clips().size(), before + 11 + 10 + 10 + 1);
    QCOMPARE(m_db->clips().last().key, u"/ez"_s); // appended when missing
    const QList<QUuid> ids = idsOf(m_db->clips());

    QSignalSpy clipsChanged(m_db.get(), &DB::clipsChanged);
    QSignalSpy collectionsChanged(m_db.get(), &DB::collectionsChanged);
    seed();
    QCOMPARE(idsOf(m_db->clips()), ids);
    QCOMPARE(clipsChanged.count(), 0);
    QCOMPARE(collectionsChanged.count(), 0);
    QCOMPARE(DB(*m_defaults, m_db->dir(), DB::Access::ReadOnly).clips(), m_db->clips()); // saved
}

void TestSeeds::seededClip_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("group");
    QTest::addColumn<QString>("webURL");  // empty: absent
    QTest::addColumn<QString>("article"); // empty: absent
    QTest::newRow("fb is facebook") << u"/fb.web"_s << u"Facebook"_s << u"Websites & URLs"_s
                                    << u"https://www.facebook.com/"_s << QString();
    QTest::newRow("portrait fetched on first use")
        << u"/einstein.media"_s << u"Albert Einstein"_s << u"Media files"_s << QString() << u"Albert_Einstein"_s;
}

void TestSeeds::seededClip()
{
    QFETCH(QString, key);
    QFETCH(QString, name);
    QFETCH(QString, group);
    QFETCH(QString, webURL);
    QFETCH(QString, article);
    seed();
    QVERIFY(indexOf(m_db->clips(), key) >= 0);
    const Clip& seeded = clip(key);
    QCOMPARE(seeded.name, name);
    QCOMPARE(seeded.group, group);
    QVERIFY(seeded.text.isEmpty());
    QVERIFY(seeded.files.isEmpty());
    QCOMPARE(seeded.webURL, webURL.isEmpty() ? std::nullopt : std::optional(webURL));
    QCOMPARE(seeded.defaultMediaArticle, article.isEmpty() ? std::nullopt : std::optional(article));
    QCOMPARE(seeded.directMediaPaste, std::optional(!article.isEmpty()));
}

void TestSeeds::userKeys_data()
{
    QTest::addColumn<QString>("userKey");
    QTest::addColumn<bool>("seedAdded");
    QTest::newRow("a user's /google does not block /google.web") << u"/google"_s << true;
    QTest::newRow("the seed's key in another case does") << u"/Google.Web"_s << false;
}

void TestSeeds::userKeys()
{
    QFETCH(QString, userKey);
    QFETCH(bool, seedAdded);
    m_db->setClips({userClip(userKey)});
    seed();
    QCOMPARE(clip(userKey).name, u"Mine"_s);
    QCOMPARE(indexOf(m_db->clips(), u"/google.web"_s) >= 0, seedAdded);
}

void TestSeeds::editedSeedStaysAndDeletedSeedReturns()
{
    seed();
    QList<Clip> clips = m_db->clips();
    Clip& google = clips[indexOf(clips, u"/google.web"_s)];
    google.name = u"Search"_s;
    google.text = u"edited"_s;
    const Clip edited = google;
    clips.removeAt(indexOf(clips, u"/chatgpt.ai"_s));
    m_db->setClips(clips);
    m_db->save();

    seed();
    QCOMPARE(clip(u"/google.web"_s), edited);
    QVERIFY(indexOf(m_db->clips(), u"/chatgpt.ai"_s) >= 0);
}

void TestSeeds::openTavoReplacedInPlace()
{
    const QList<Clip> before{userClip(u"/a"_s), userClip(u"/ez"_s), userClip(u"/b"_s)};
    m_db->setClips(before);
    seed();
    QCOMPARE(m_db->clips().size(), before.size() + 11 + 10 + 10); // no second "/ez"
    Clip expected = before.at(1);
    expected.name = u"Open Tavo"_s;
    expected.text.clear();
    expected.group = u"Applications"_s;
    expected.appBundleIdentifier = appId;
    expected.appPath = appPath;
    QCOMPARE(m_db->clips().at(1), expected); // the identity stays too
}

void TestSeeds::collectionsAddedOnceIgnoringCase()
{
    m_db->setCollections({u"Personal"_s, u"websites & urls"_s, u"APPLICATIONS"_s});
    seed();
    QCOMPARE(m_db->collections(),
             QStringList({u"Personal"_s, u"websites & urls"_s, u"APPLICATIONS"_s, u"AI Engines"_s, u"Media files"_s}));
}

QTEST_GUILESS_MAIN(TestSeeds)
#include "tst_seeds.moc"
