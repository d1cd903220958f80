// Saves a growing profile until it is killed; the crash tests kill it at random moments.
//   store_crash_writer ROOT              saves in place in a loop
//   store_crash_writer ROOT background   a burst of edits from the event loop, saved in the background
//   store_crash_writer ROOT quit COUNT   COUNT edits saved in the background, then the application
//                                        quits and the process ends without destroying the store
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QCoreApplication>
#include <QTimer>

#include <cstdio>
#include <unistd.h>

namespace {

// Each edit adds one batch of 200 shortcuts, so a file that holds part of a batch is torn.
void addBatch(QList<tavo::Clip>& clips, int n)
{
    for (int i = 0; i < 200; ++i) {
        tavo::Clip clip;
        clip.key = QStringLiteral("/k%1-%2").arg(n).arg(i);
        clip.name = QStringLiteral("Shortcut %1").arg(i);
        clip.text = QString(200, u'x');
        clips.append(clip);
    }
}

void ready()
{
    std::puts("ready");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        return 2;
    }
    const QString root = QString::fromLocal8Bit(argv[1]);
    const QString mode = argc > 2 ? QString::fromLocal8Bit(argv[2]) : QString();
    tavo::Defaults defaults(root + QStringLiteral("/defaults.json"));
    // Never deleted: a process that quits ends without the store's destructor.
    auto* db = new tavo::DB(defaults, root);
    if (!mode.isEmpty()) {
        db->writeInBackground();
    }
    db->activateProfile(QStringLiteral("crash"));
    QList<tavo::Clip> clips = db->clips();

    if (mode.isEmpty()) {
        for (int n = 0;; ++n) {
            addBatch(clips, n);
            db->setClips(clips);
            db->save();
            if (n == 0) {
                ready();
            }
        }
    }

    const int count = mode == QLatin1String("quit") && argc > 3 ? QByteArray(argv[3]).toInt() : -1;
    int n = 0;
    QTimer edits;
    QObject::connect(&edits, &QTimer::timeout, [&] {
        if (n == count) {
            edits.stop();
            QCoreApplication::quit();
            return;
        }
        addBatch(clips, n);
        db->setClips(clips);
        db->save();
        if (n++ == 0) {
            ready();
        }
    });
    edits.start(0);
    const int code = app.exec();
    _exit(code);
}
