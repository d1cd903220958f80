#include "shell/shortcut_list_page.h"
#include "shell/shortcut_table_model.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QKeyEvent>
#include <QLineEdit>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <vector>

using namespace tavo;

namespace {

// 100,000 shortcuts over 30 collections, with words a search finds in a few thousand of them,
// some media and some websites, in memory.
struct Library
{
    QTemporaryDir dir;
    Defaults defaults{dir.filePath(QStringLiteral("defaults.json"))};
    DB db{defaults, dir.filePath(QStringLiteral("Tavo"))};

    Library()
    {
        const QStringList words = {
            QStringLiteral("thank"),   QStringLiteral("warm"),    QStringLiteral("regards"), QStringLiteral("address"),
            QStringLiteral("meeting"), QStringLiteral("invoice"), QStringLiteral("hello"),   QStringLiteral("reply"),
            QStringLiteral("order"),   QStringLiteral("sign"),    QStringLiteral("follow"),  QStringLiteral("quote"),
        };
        QList<Clip> clips;
        clips.reserve(100'000);
        for (int i = 0; i < 100'000; ++i) {
            const QString& first = words.at(i % words.size());
            const QString& second = words.at((i / words.size()) % words.size());
            Clip clip;
            clip.key = QStringLiteral("/%1%2").arg(first.left(3)).arg(i);
            clip.name = QStringLiteral("%1 %2 %3").arg(first, second).arg(i);
            clip.name[0] = clip.name[0].toUpper();
            clip.text = QStringLiteral("Dear customer, about your %1: we %2 you for order %3. Kind regards, the team.")
                            .arg(second, first)
                            .arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            if (i % 7 == 0) {
                clip.groups = QStringList{QStringLiteral("Collection %1").arg((i + 1) % 30)};
            }
            if (i % 20 == 0) {
                clip.files = {QStringLiteral("/home/user/Pictures/picture%1.png").arg(i)};
            }
            if (i % 33 == 0) {
                clip.webURL = QStringLiteral("https://example.org/%1").arg(i);
            }
            clips.append(clip);
        }
        db.setClips(clips);
    }
};

Library& library()
{
    static Library instance;
    return instance;
}

// The longest time the event loop went without turning: a 1 ms timer that notes the longest
// gap between its firings, less its own period.
class Watchdog : public QObject
{
public:
    Watchdog()
    {
        m_timer.setInterval(1);
        m_timer.setTimerType(Qt::PreciseTimer);
        connect(&m_timer, &QTimer::timeout, this, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            m_longest = std::max(m_longest, now - m_last);
            m_last = now;
        });
        m_clock.start();
        m_timer.start();
    }
    // From now on: the gap up to the next firing includes whatever runs before it.
    void restart() { m_last = m_clock.nsecsElapsed(); }
    double longestMs() const { return double(std::max<qint64>(0, m_longest - 1'000'000)) / 1e6; }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_longest = 0;
};

void waitFor(ShortcutListPage& page)
{
    QEventLoop loop;
    QObject::connect(&page, &ShortcutListPage::filtered, &loop, &QEventLoop::quit);
    loop.exec();
}

// Lets the loop run a few milliseconds more, so the repaint after a result counts as a stall.
void settle(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

void press(QWidget* target, int key, const QString& text)
{
    QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier, text);
    QKeyEvent up(QEvent::KeyRelease, key, Qt::NoModifier, text);
    QApplication::sendEvent(target, &down);
    QApplication::sendEvent(target, &up);
}

// One keystroke in the search field, from the key to the page that shows its result. The
// keystrokes type "warm" and take it back letter by letter, so the results go from 100,000
// rows to a few thousand and back. range(0) is the column sorted by, -1 for none.
void keystrokeToPage(benchmark::State& state)
{
    Library& lib = library();
    ShortcutListPage page(lib.db);
    page.resize(1000, 700);
    page.show();
    waitFor(page);
    if (state.range(0) >= 0) {
        page.sortBy(int(state.range(0)), Qt::AscendingOrder);
        waitFor(page);
    }
    auto* field = page.findChild<QLineEdit*>(QStringLiteral("searchShortcuts"));
    field->setFocus();
    settle(20);

    const QString word = QStringLiteral("warm");
    std::vector<double> latencies;
    double longestStall = 0;
    Watchdog watchdog;
    int step = 0;
    for (auto _ : state) {
        const int position = step % (2 * int(word.size()));
        ++step;
        watchdog.restart();
        QElapsedTimer timer;
        timer.start();
        if (position < word.size()) {
            press(field, Qt::Key_A + (word.at(position).unicode() - u'a'), word.at(position));
        } else {
            press(field, Qt::Key_Backspace, QString());
        }
        waitFor(page);
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        latencies.push_back(seconds * 1000);
        settle(5);
        longestStall = std::max(longestStall, watchdog.longestMs());
    }
    std::sort(latencies.begin(), latencies.end());
    state.counters["median_ms"] = latencies.at(latencies.size() / 2);
    state.counters["slowest_ms"] = latencies.back();
    state.counters["longest_stall_ms"] = longestStall;
    state.counters["rows"] = double(lib.db.clips().size());
}

// A click on a column's header, from the click to the page in the new order: the one time the
// whole library is sorted, on a worker. range(0) is the column; each click turns the order round.
void sortToPage(benchmark::State& state)
{
    Library& lib = library();
    ShortcutListPage page(lib.db);
    page.resize(1000, 700);
    page.show();
    waitFor(page);
    double longestStall = 0;
    Watchdog watchdog;
    Qt::SortOrder order = Qt::AscendingOrder;
    for (auto _ : state) {
        watchdog.restart();
        QElapsedTimer timer;
        timer.start();
        page.sortBy(int(state.range(0)), order);
        waitFor(page);
        state.SetIterationTime(double(timer.nsecsElapsed()) / 1e9);
        settle(5);
        longestStall = std::max(longestStall, watchdog.longestMs());
        order = order == Qt::AscendingOrder ? Qt::DescendingOrder : Qt::AscendingOrder;
    }
    state.counters["longest_stall_ms"] = longestStall;
}

} // namespace

BENCHMARK(sortToPage)
    ->ArgName("sortColumn")
    ->Arg(ShortcutTableModel::KeyColumn)
    ->Arg(ShortcutTableModel::NameColumn)
    ->Arg(ShortcutTableModel::CollectionColumn)
    ->UseManualTime()
    ->Iterations(6)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(keystrokeToPage)
    ->ArgName("sortColumn")
    ->Arg(-1)
    ->Arg(ShortcutTableModel::NameColumn)
    ->Arg(ShortcutTableModel::KeyColumn)
    ->UseManualTime()
    ->Iterations(40)
    ->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // Widgets without a display: the page is drawn off screen, as in the tests.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
