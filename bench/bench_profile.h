#pragma once

#include "store/defaults.h"
#include "store/profile_store.h"
#include "store/store_files.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QUuid>

#include <fstream>
#include <string>

namespace tavo::bench {

// The peak resident size of this process so far, in MiB.
inline double peakMemoryMiB()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stod(line.substr(6)) / 1024.0;
        }
    }
    return 0;
}

// `count` shortcuts over 30 collections. Given a folder, one in ten gets a 200 KB attachment of its
// own there; media does not compress, so the bytes are random.
inline QList<Clip> shortcutsWithMedia(int count, const QString& attachmentsDir = {})
{
    constexpr int oneIn = 10;
    constexpr qsizetype attachmentBytes = 200 * 1024;
    QList<Clip> clips;
    clips.reserve(count);
    QByteArray media(attachmentBytes, Qt::Uninitialized);
    for (int i = 0; i < count; ++i) {
        Clip clip;
        clip.key = QStringLiteral("/key%1").arg(i);
        clip.name = QStringLiteral("Shortcut number %1").arg(i);
        clip.text = QStringLiteral("Thanks for your message about order %1. We will get back to you soon.").arg(i);
        clip.group = QStringLiteral("Collection %1").arg(i % 30);
        if (!attachmentsDir.isEmpty() && i % oneIn == 0) {
            QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(media.data()),
                                                  media.size() / qsizetype(sizeof(quint32)));
            const QString path = attachmentsDir + QStringLiteral("/photo-%1.jpg").arg(i);
            QFile file(path);
            if (file.open(QIODevice::WriteOnly)) {
                file.write(media);
            }
            clip.files = {path};
        }
        clips.append(clip);
    }
    return clips;
}

// A store of the benchmark's own in the temporary folder whose profile "ana" holds `count`
// shortcuts with media. Made on the first run and kept, so later runs measure only their work.
struct MediaProfile
{
    QString folder;
    Defaults defaults;

    MediaProfile(const QString& name, int count)
        : folder(QDir::tempPath() + u'/' + name)
        , defaults(folder + QStringLiteral("/defaults.json"))
    {
        DB db(defaults, root());
        db.activateProfile(QStringLiteral("ana"));
        if (db.clips().size() == count) {
            return;
        }
        QDir().mkpath(db.attachmentsDir());
        db.setClips(shortcutsWithMedia(count, db.attachmentsDir()));
        db.save();
    }

    QString root() const { return folder + QStringLiteral("/Quill"); }
};

// A profile as a heavy user would have it: `shortcuts` shortcuts over 30 collections with a
// sentence or two each, some media named, and `records` records, for the account "bench". Made
// once in the temporary folder `name` and kept, so later runs measure only their own work.
struct LargeProfile
{
    QString folder;

    LargeProfile(const QString& name, int shortcuts, int records)
        : folder(QDir::tempPath() + u'/' + name)
    {
        const QString profile = root() + QStringLiteral("/Profiles/") + tavoProfileSlug(identity());
        if (QFile::exists(profile + QStringLiteral("/collection-definitions.json"))) {
            return;
        }
        QList<Clip> clips;
        clips.reserve(shortcuts);
        for (int i = 0; i < shortcuts; ++i) {
            Clip clip;
            clip.key = QStringLiteral("/key%1").arg(i);
            clip.name = QStringLiteral("Shortcut number %1").arg(i);
            clip.text = QStringLiteral("Thanks for your message about order %1. We will get back to you within two "
                                       "working days with an update on delivery.")
                            .arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            if (i % 10 == 0) {
                clip.files = {QStringLiteral("/home/user/.local/share/Quill/Attachments/file%1.png").arg(i)};
            }
            clips.append(clip);
        }
        QList<CollectionRecord> customers;
        customers.reserve(records);
        for (int i = 0; i < records; ++i) {
            CollectionRecord record;
            record.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
            record.collection = QStringLiteral("Customers");
            record.name = QStringLiteral("Customer %1").arg(i);
            record.alias = QStringLiteral("cust%1").arg(i);
            record.values = {{QStringLiteral("Name"), record.name},
                             {QStringLiteral("Email"), QStringLiteral("c%1@example.com").arg(i)},
                             {QStringLiteral("Address"), QStringLiteral("%1 Main Street, Springfield").arg(i)}};
            record.updatedAt = QDateTime::currentDateTimeUtc();
            customers.append(record);
        }
        writeJsonAtomically(profile + QStringLiteral("/clips.json"), QJsonDocument(clipsToJson(clips)));
        writeJsonAtomically(profile + QStringLiteral("/collection-records.json"),
                            QJsonDocument(recordsToJson(customers)));
        Defaults defaults(config());
        DB db(defaults, root());
        db.activateProfile(identity()); // writes the definitions once
    }

    static QString identity() { return QStringLiteral("bench"); }
    QString root() const { return folder + QStringLiteral("/Quill"); }
    QString config() const { return folder + QStringLiteral("/defaults.json"); }
};

} // namespace tavo::bench
