// Saves a growing profile in a loop until it is killed; the crash test kills it at random moments.
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        return 2;
    }
    const QString root = QString::fromLocal8Bit(argv[1]);
    tavo::Defaults defaults(root + QStringLiteral("/defaults.json"));
    tavo::DB db(defaults, root);
    db.activateProfile(QStringLiteral("crash"));
    QList<tavo::Clip> clips = db.clips();
    for (int n = 0;; ++n) {
        for (int i = 0; i < 200; ++i) {
            tavo::Clip clip;
            clip.key = QStringLiteral("/k%1-%2").arg(n).arg(i);
            clip.name = QStringLiteral("Shortcut %1").arg(i);
            clip.text = QString(200, u'x');
            clips.append(clip);
        }
        db.setClips(clips);
        db.save();
        if (n == 0) {
            std::puts("ready");
            std::fflush(stdout);
        }
    }
}
