// The browser's screen on a warm web engine: showing the workspace on its Home page, and the
// memory of ten tabs of a local page (this process and Chromium's helpers together).
// Needs an X server: tests/isolated build/bench-home tests/with-xvfb build/bench/tavo_bench_browser_web
#include "browser/browser_tabs.h"
#include "browser/web/browser_workspace.h"
#include "store/defaults.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QWebEngineView>
#include <QWindow>

#include <benchmark/benchmark.h>

#include <functional>

using namespace tavo;

namespace {

bool waitFor(const std::function<bool()>& done, int timeoutMs = 30000)
{
    QElapsedTimer clock;
    clock.start();
    while (!done()) {
        if (clock.elapsed() > timeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

// Proportional set size, in KiB, of this process and every process below it.
double treeMemoryKiB()
{
    QHash<qint64, qint64> parents;
    for (const QString& entry : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        bool number = false;
        const qint64 pid = entry.toLongLong(&number);
        if (!number) {
            continue;
        }
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (stat.open(QIODevice::ReadOnly)) {
            const QByteArray text = stat.readAll();
            const QList<QByteArray> fields = text.mid(text.lastIndexOf(')') + 2).split(' ');
            parents.insert(pid, fields.value(1).toLongLong());
        }
    }
    QList<qint64> tree{QCoreApplication::applicationPid()};
    for (qsizetype i = 0; i < tree.size(); ++i) {
        for (auto it = parents.cbegin(); it != parents.cend(); ++it) {
            if (it.value() == tree.at(i)) {
                tree.append(it.key());
            }
        }
    }
    double total = 0;
    for (qint64 pid : tree) {
        QFile rollup(QStringLiteral("/proc/%1/smaps_rollup").arg(pid));
        if (!rollup.open(QIODevice::ReadOnly)) {
            continue;
        }
        for (const QByteArray& line : rollup.readAll().split('\n')) {
            if (line.startsWith("Pss:")) {
                total += line.mid(4).trimmed().split(' ').value(0).toDouble();
            }
        }
    }
    return total;
}

class PageServer
{
public:
    PageServer()
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                    if (!socket->peek(8192).contains("\r\n\r\n")) {
                        return;
                    }
                    socket->readAll();
                    const QByteArray body = "<!doctype html><title>Local page</title><h1>Local page</h1>"
                                            "<p>A page of the benchmark, served on loopback.</p>";
                    socket->write(
                        "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nConnection: close\r\nContent-Length: " +
                        QByteArray::number(body.size()) + "\r\n\r\n" + body);
                    socket->disconnectFromHost();
                });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
        m_server.listen(QHostAddress::LocalHost, 0);
    }
    QString url(int n) const { return QStringLiteral("http://127.0.0.1:%1/page%2").arg(m_server.serverPort()).arg(n); }

private:
    QTcpServer m_server;
};

void warmEngine()
{
    QWebEngineView view;
    bool loaded = false;
    QObject::connect(&view, &QWebEngineView::loadFinished, &view, [&loaded] { loaded = true; });
    view.setHtml(QStringLiteral("<p>warm</p>"));
    view.show();
    waitFor([&loaded] { return loaded; });
}

void BM_ShowWorkspaceWithHome(benchmark::State& state)
{
    Defaults defaults;
    TavoBrowserTabs tabs(defaults);
    for (auto _ : state) {
        auto* workspace = new BrowserWorkspace(tabs, defaults);
        workspace->resize(1180, 760);
        workspace->show();
        waitFor([workspace] { return workspace->windowHandle() && workspace->windowHandle()->isExposed(); });
        QCoreApplication::processEvents();
        state.PauseTiming();
        delete workspace;
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_ShowWorkspaceWithHome)->Unit(benchmark::kMillisecond)->Iterations(20);

void BM_MemoryOfTenTabs(benchmark::State& state)
{
    PageServer server;
    Defaults defaults;
    TavoBrowserTabs tabs(defaults);
    auto* workspace = new BrowserWorkspace(tabs, defaults);
    workspace->resize(1180, 760);
    workspace->show();
    waitFor([workspace] { return workspace->windowHandle() && workspace->windowHandle()->isExposed(); });
    const double before = treeMemoryKiB();
    for (auto _ : state) {
        for (int n = 0; n < 10; ++n) {
            tabs.newTab(server.url(n));
            waitFor([&tabs] { return tabs.current() && tabs.current()->title == QStringLiteral("Local page"); });
        }
    }
    waitFor([] { return false; }, 2000);
    const double after = treeMemoryKiB();
    state.counters["MiB_before"] = before / 1024;
    state.counters["MiB_ten_tabs"] = after / 1024;
    state.counters["MiB_per_tab"] = (after - before) / 1024 / 10;
    delete workspace;
}
BENCHMARK(BM_MemoryOfTenTabs)->Unit(benchmark::kMillisecond)->Iterations(1);

} // namespace

int main(int argc, char** argv)
{
    QApplication::setAttribute(Qt::AA_ShareOpenGLContexts);
    qputenv("QTWEBENGINE_CHROMIUM_FLAGS", "--disable-gpu");
    QApplication app(argc, argv);
    warmEngine();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
