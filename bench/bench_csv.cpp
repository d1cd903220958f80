#include "exchange/csv.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QCoreApplication>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace tavo;

namespace {

constexpr int rowCount = 10'000;

// Shortcuts as a spreadsheet would carry them: a sentence or two, a name, one or two
// collections, some with quotes, commas and line breaks that need quoting.
QList<Clip> sampleClips()
{
    QList<Clip> clips;
    clips.reserve(rowCount);
    for (int i = 0; i < rowCount; ++i) {
        Clip clip;
        clip.key = QStringLiteral("/key%1").arg(i);
        clip.name = QStringLiteral("Shortcut number %1").arg(i);
        clip.text = i % 7 ? QStringLiteral("Thanks for your message about order %1. We will get back to you within two "
                                           "working days with an update on delivery.")
                                .arg(i)
                          : QStringLiteral("Dear \"customer\",\nyour order %1, as promised.").arg(i);
        clip.group = QStringLiteral("Collection %1").arg(i % 30);
        if (i % 3 == 0) {
            clip.groups = QStringList{QStringLiteral("Work")};
        }
        clips.append(clip);
    }
    return clips;
}

void BM_ExportCSV10k(benchmark::State& state)
{
    const QList<Clip> clips = sampleClips();
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("Tavo-Shortcuts.csv"));
    for (auto _ : state) {
        const Result<QString> done = exportCSV(clips, path);
        benchmark::DoNotOptimize(done.ok());
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}
BENCHMARK(BM_ExportCSV10k)->Unit(benchmark::kMillisecond);

// Bytes to shortcuts saved in the store: decode, parse, make the shortcuts, append under the lock
// and write clips.json, into a store that holds the 10,000 already.
void BM_ImportCSV10k(benchmark::State& state)
{
    const QList<Clip> clips = sampleClips();
    const QByteArray bytes = exportCSVText(clips).toUtf8();
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir dir;
        Defaults defaults(dir.filePath(QStringLiteral("defaults.json")));
        DB db(defaults, dir.filePath(QStringLiteral("store")));
        db.setClips(clips);
        db.save();
        state.ResumeTiming();

        const Result<QString> done = importRowsAndDownload(db, parseCSV(decodeCSVBytes(bytes)), false, {});
        benchmark::DoNotOptimize(done.ok());
        if (db.clips().size() != 2 * rowCount) {
            state.SkipWithError("the import lost rows");
        }
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}
BENCHMARK(BM_ImportCSV10k)->Unit(benchmark::kMillisecond);

// The worker's share of the same import: bytes to shortcuts, before the store.
void BM_PrepareCSV10k(benchmark::State& state)
{
    const QByteArray bytes = exportCSVText(sampleClips()).toUtf8();
    QTemporaryDir dir;
    const QString attachments = dir.filePath(QStringLiteral("Attachments"));
    for (auto _ : state) {
        const PreparedCSVImport prepared =
            prepareCSVImport(parseCSV(decodeCSVBytes(bytes)), false, {}, builtInCollections(), attachments);
        benchmark::DoNotOptimize(prepared.clips.size());
    }
    state.SetItemsProcessed(state.iterations() * rowCount);
}
BENCHMARK(BM_PrepareCSV10k)->Unit(benchmark::kMillisecond);

void BM_Parse20MB(benchmark::State& state)
{
    QByteArray bytes = exportCSVText(sampleClips()).toUtf8();
    const QByteArray block = bytes.mid(bytes.indexOf('\n') + 1) + '\n';
    while (bytes.size() < 20 * 1024 * 1024) {
        bytes += block;
    }
    qsizetype rows = 0;
    for (auto _ : state) {
        rows = parseCSV(decodeCSVBytes(bytes)).size();
        benchmark::DoNotOptimize(rows);
    }
    state.SetBytesProcessed(state.iterations() * bytes.size());
    state.counters["rows"] = double(rows);
}
BENCHMARK(BM_Parse20MB)->Unit(benchmark::kMillisecond);

// Serves every GET with the same 100 KB body on 127.0.0.1, one request per connection.
class MediaServer : public QTcpServer
{
public:
    QByteArray body = QByteArray(100 * 1024, 'm');

    MediaServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    const QByteArray request = socket->property("request").toByteArray() + socket->readAll();
                    socket->setProperty("request", request);
                    if (!request.contains("\r\n\r\n")) {
                        return;
                    }
                    socket->write("HTTP/1.1 200 OK\r\nContent-Type: image/png\r\nContent-Length: " +
                                  QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
                    socket->disconnectFromHost();
                });
                connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }
};

// 1,000 rows with one media address each, downloaded over loopback into Attachments.
void BM_ImportWith1000Downloads(benchmark::State& state)
{
    MediaServer server;
    if (!server.listen(QHostAddress::LocalHost, 0)) {
        state.SkipWithError("no loopback server");
        return;
    }
    QString csv;
    for (int i = 0; i < 1000; ++i) {
        csv += QStringLiteral("/m%1,text,,,http://127.0.0.1:%2/file%1.png\n").arg(i).arg(server.serverPort());
    }
    const CSVRows rows = parseCSV(csv);
    for (auto _ : state) {
        state.PauseTiming();
        QTemporaryDir dir;
        state.ResumeTiming();
        const PreparedCSVImport prepared =
            prepareCSVImport(rows, true, {}, builtInCollections(), dir.filePath(QStringLiteral("Attachments")));
        if (prepared.downloadedFiles.size() != 1000) {
            state.SkipWithError("downloads failed");
        }
    }
    state.SetItemsProcessed(state.iterations() * 1000);
}
BENCHMARK(BM_ImportWith1000Downloads)->Unit(benchmark::kMillisecond)->Iterations(2);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
