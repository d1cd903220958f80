#pragma once

// Profiles for the backup tests: real store folders in the test's own home, filled through DB.

#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QProcessEnvironment>
#include <QStringList>

namespace backup_test {

using namespace tavo;

inline QString dataRoot()
{
    return qEnvironmentVariable("XDG_DATA_HOME") + QStringLiteral("/Quill");
}

inline QString configRoot()
{
    return qEnvironmentVariable("XDG_CONFIG_HOME") + QStringLiteral("/Tavo");
}

inline void wipeStore()
{
    QDir(dataRoot()).removeRecursively();
    QDir(configRoot()).removeRecursively();
}

inline bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

inline QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Every file of the store and the settings with its bytes.
inline QHash<QString, QByteArray> storeFiles()
{
    QHash<QString, QByteArray> files;
    for (const QString& root : {dataRoot(), configRoot()}) {
        QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString path = it.next();
            files.insert(path, readFile(path));
        }
    }
    return files;
}

inline QStringList workFolders()
{
    return QDir(QDir::tempPath()).entryList({QStringLiteral("TavoRestore-*")}, QDir::Dirs | QDir::Hidden);
}

// One shortcut of a profile: its key, text and the names and contents of its media, which are
// written straight into Attachments under those names (as older layouts left them).
struct Media
{
    QString name;
    QByteArray content;
};

struct Shortcut
{
    QString key;
    QString text;
    QList<Media> media;
};

// Makes `identity`'s profile hold exactly these shortcuts, collections and hidden names.
inline void fillProfile(Defaults& defaults, const QString& identity, const QList<Shortcut>& shortcuts,
                        const QStringList& collections, const QStringList& hidden)
{
    DB db(defaults);
    db.activateProfile(identity);
    QList<Clip> clips;
    for (const Shortcut& shortcut : shortcuts) {
        Clip clip;
        clip.key = shortcut.key;
        clip.name = shortcut.key.mid(1);
        clip.text = shortcut.text;
        clip.group = collections.value(0, QStringLiteral("Personal"));
        for (const Media& media : shortcut.media) {
            const QString path = db.attachmentsDir() + u'/' + media.name;
            writeFile(path, media.content);
            clip.files.append(path);
        }
        clips.append(clip);
    }
    db.setClips(clips);
    db.save();
    db.setCollections(collections);
    db.setHiddenCollections(hidden);
}

// A copy of the tavoctl under test in the test's own temporary folder, made once: the build
// folder's binary may be relinked by a build running beside the tests.
inline QString tavoctlCopy(const QString& built)
{
    static const QString copy = [&] {
        const QString path = QDir::tempPath() + QStringLiteral("/tavoctl-under-test");
        QFile::remove(path);
        if (!QFile::copy(built, path)) {
            return built;
        }
        QFile::setPermissions(path, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        return path;
    }();
    return copy;
}

inline QString profileFolder(const QString& identity)
{
    return dataRoot() + QStringLiteral("/Profiles/") + tavoProfileSlug(identity);
}

} // namespace backup_test
