#pragma once

// What the end-to-end tests share: the running Tavo with its log, keys through xdotool, and a
// look into the profile the run writes.

#include <QDirIterator>
#include <QPlainTextEdit>
#include <QProcess>
#include <QtTest>

#include <initializer_list>
#include <memory>

namespace e2e {

// The window the tests type into, shown; the caller waits for it to be active.
inline std::unique_ptr<QPlainTextEdit> targetWindow()
{
    auto editor = std::make_unique<QPlainTextEdit>();
    editor->setWindowTitle(QStringLiteral("Target"));
    editor->resize(600, 300);
    editor->show();
    return editor;
}

inline QStringList words(std::initializer_list<const char*> list)
{
    QStringList result;
    for (const char* word : list) {
        result << QString::fromUtf8(word);
    }
    return result;
}

// Through XTest, as a keyboard would: never to a window directly, which would bypass grabs.
inline void xdotool(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral("xdotool"), arguments);
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitCode(), 0);
}

// The id of a shown window whose title matches `name` (a regular expression), or empty.
inline QString visibleWindow(const QString& name)
{
    QProcess search;
    search.start(QStringLiteral("xdotool"),
                 {QStringLiteral("search"), QStringLiteral("--onlyvisible"), QStringLiteral("--name"), name});
    if (!search.waitForFinished(5000) || search.exitCode() != 0) {
        return {};
    }
    return QString::fromLatin1(search.readAllStandardOutput()).split(u'\n').first().trimmed();
}

// The path of the profile file called `fileName` that holds `marker`, or empty.
inline QString profileFileWith(const QString& fileName, const QByteArray& marker)
{
    QDirIterator files(QDir::homePath(), {fileName}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = files.next();
        QFile file(path);
        if (file.open(QIODevice::ReadOnly) && file.readAll().contains(marker)) {
            return path;
        }
    }
    return {};
}

// The tavo process of a test, its output gathered as it comes and kept in $HOME/tavo.log when
// it ends, for a look after a failure.
class TavoRun : public QObject
{
public:
    QProcess process;
    QByteArray log;

    void start(QProcessEnvironment env = QProcessEnvironment::systemEnvironment())
    {
        if (!env.contains(QStringLiteral("QT_LOGGING_RULES"))) {
            env.insert(QStringLiteral("QT_LOGGING_RULES"),
                       qEnvironmentVariable("TAVO_E2E_LOGGING", QStringLiteral("tavo.*.info=true")));
        }
        process.setProcessEnvironment(env);
        process.setProcessChannelMode(QProcess::MergedChannels);
        connect(&process, &QProcess::readyRead, this, [this] { log += process.readAll(); });
        process.start(QStringLiteral(TAVO_PATH));
        QVERIFY(process.waitForStarted());
    }

    void stop()
    {
        process.terminate();
        if (!process.waitForFinished(5000)) {
            process.kill();
        }
        QFile file(QDir::home().filePath(QStringLiteral("tavo.log")));
        if (file.open(QIODevice::WriteOnly)) {
            file.write(log);
        }
    }
};

} // namespace e2e
