#include "shell/collection_library_page.h"
#include "shell/shortcut_list_page.h"
#include "store/collections.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>
#include <QUuid>

#include <algorithm>
#include <ctime>
#include <vector>

using namespace tavo;

namespace {

constexpr int shortcutCount = 100'000;
constexpr int recordCount = 20'000;
constexpr int collectionCount = 300;
// A tenth of everything is in the first collection, the largest by far; the last ten hold the
// same twenty shortcuts each, so the identical-collections analysis has something to find.
const QString largestCollection = QStringLiteral("Collection 000");
const QString typicalCollection = QStringLiteral("Collection 150");
constexpr int identicalFrom = collectionCount - 10;

QString collectionName(int index)
{
    return QStringLiteral("Collection %1").arg(index, 3, 10, QLatin1Char('0'));
}

// Spread over the collections but the identical ones: one in ten to the largest.
int collectionFor(int i)
{
    return i % 10 == 0 ? 0 : 1 + (i / 10) % (identicalFrom - 1);
}

// 100,000 shortcuts and 20,000 records in 300 collections, in memory, with repeated keys and
// identical collections for the duplicate analyses.
struct Library
{
    QTemporaryDir dir;
    Defaults defaults{dir.filePath(QStringLiteral("defaults.json"))};
    DB db{defaults, dir.filePath(QStringLiteral("Tavo"))};

    Library()
    {
        QStringList names;
        for (int c = 0; c < collectionCount; ++c) {
            names << collectionName(c);
        }
        db.setCollections(names);

        const QStringList words = {QStringLiteral("thank"),   QStringLiteral("warm"),    QStringLiteral("regards"),
                                   QStringLiteral("address"), QStringLiteral("invoice"), QStringLiteral("meeting")};
        QList<Clip> clips;
        clips.reserve(shortcutCount);
        const int sameEverywhere = 20;
        for (int i = 0; clips.size() < shortcutCount - (collectionCount - identicalFrom) * sameEverywhere; ++i) {
            Clip clip;
            // One key in twenty-five repeats the one before it, in another collection.
            clip.key = QStringLiteral("/key%1").arg(i % 25 == 1 ? i - 1 : i);
            clip.name = QStringLiteral("%1 %2").arg(words.at(i % words.size())).arg(i);
            clip.text = QStringLiteral("Dear customer, about your %1: order %2. Kind regards, the team.")
                            .arg(words.at((i / 7) % words.size()))
                            .arg(i);
            clip.group = collectionName(collectionFor(i));
            if (i % 9 == 0) {
                clip.groups = QStringList{clip.group, collectionName(collectionFor(i + 3))};
            }
            clips.append(clip);
        }
        for (int c = identicalFrom; c < collectionCount; ++c) {
            for (int s = 0; s < sameEverywhere; ++s) {
                Clip clip;
                clip.key = QStringLiteral("/same%1").arg(s);
                clip.name = QStringLiteral("Same %1").arg(s);
                clip.text = QStringLiteral("The same text %1.").arg(s);
                clip.group = collectionName(c);
                clips.append(clip);
            }
        }
        db.setClips(clips);

        QList<CollectionRecord> records;
        records.reserve(recordCount);
        for (int i = 0; i < recordCount; ++i) {
            CollectionRecord record;
            record.id = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
            record.collection = collectionName(collectionFor(i));
            record.name = QStringLiteral("Customer %1").arg(i);
            record.alias = QStringLiteral("cust%1").arg(i);
            record.values = {{QStringLiteral("Email"), QStringLiteral("customer%1@example.org").arg(i)},
                             {QStringLiteral("Phone"), QStringLiteral("+1 555 %1").arg(i, 5, 10, QLatin1Char('0'))},
                             {QStringLiteral("Company"), words.at(i % words.size())}};
            record.updatedAt = QDateTime::currentDateTimeUtc();
            records.append(record);
        }
        db.setCollectionRecords(records);
    }
};

Library& library()
{
    static Library instance;
    return instance;
}

// The main thread's own processor time, apart from the wall clock: the two differ when the
// workers of a load take both cores from it.
qint64 threadCpuNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

// Times every event the main thread handles from the loop, painting apart from the rest: the
// longest is the longest time the window could not answer, the sum what the main thread spent.
class TimedApplication : public QApplication
{
public:
    using QApplication::QApplication;

    bool notify(QObject* receiver, QEvent* event) override
    {
        if (m_depth > 0) {
            return QApplication::notify(receiver, event); // inside a timed one already
        }
        ++m_depth;
        const qint64 cpuBefore = threadCpuNs();
        QElapsedTimer timer;
        timer.start();
        const bool result = QApplication::notify(receiver, event);
        const qint64 spent = timer.nsecsElapsed();
        const qint64 cpu = threadCpuNs() - cpuBefore;
        --m_depth;
        if (event->type() == QEvent::UpdateRequest || event->type() == QEvent::Paint) {
            m_longestPaint = std::max(m_longestPaint, spent);
            m_longestPaintCpu = std::max(m_longestPaintCpu, cpu);
        } else {
            m_longest = std::max(m_longest, spent);
            m_longestCpu = std::max(m_longestCpu, cpu);
        }
        m_total += spent;
        return result;
    }

    void restart()
    {
        m_longest = 0;
        m_longestCpu = 0;
        m_longestPaint = 0;
        m_longestPaintCpu = 0;
        m_total = 0;
    }
    // The longest event other than painting: a result taken, a model filled, a layout.
    double longestMs() const { return double(m_longest) / 1e6; }
    double longestCpuMs() const { return double(m_longestCpu) / 1e6; }
    double longestPaintMs() const { return double(m_longestPaint) / 1e6; }
    double longestPaintCpuMs() const { return double(m_longestPaintCpu) / 1e6; }
    double totalMs() const { return double(m_total) / 1e6; }

private:
    int m_depth = 0;
    qint64 m_longest = 0;
    qint64 m_longestCpu = 0;
    qint64 m_longestPaint = 0;
    qint64 m_longestPaintCpu = 0;
    qint64 m_total = 0;
};

TimedApplication& app()
{
    return *static_cast<TimedApplication*>(qApp);
}

// Runs the loop until `done` holds, checked at each of the page's results; false after 30 s.
template<typename Done>
bool waitUntil(CollectionLibraryPage& page, Done done)
{
    if (done()) {
        return true;
    }
    QEventLoop loop;
    bool reached = false;
    const auto check = [&] {
        if (done()) {
            reached = true;
            loop.quit();
        }
    };
    QObject::connect(&page, &CollectionLibraryPage::loaded, &loop, check);
    QObject::connect(page.shortcutList(), &ShortcutListPage::filtered, &loop, check);
    QTimer::singleShot(30'000, &loop, &QEventLoop::quit);
    loop.exec();
    return reached;
}

// The page shows the newest load and the list the newest filter run.
bool settledPage(const CollectionLibraryPage& page)
{
    return !page.isLoading() && !page.shortcutList()->isFiltering();
}

// Lets the loop run a few milliseconds more, so the repaint after a result is counted too.
void settle(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

struct ShownPage
{
    CollectionLibraryPage page{library().db};

    ShownPage()
    {
        page.resize(1200, 800);
        page.show();
        waitUntil(page, [this] { return settledPage(page); });
        settle(20);
    }
};

// What one step cost the main thread, gathered over the iterations.
struct MainThreadCosts
{
    // The longest single stretch of work on the step's way other than painting: the call itself
    // (selectCollection, setMode, setCurrentPage) or an event it set off, such as taking a load
    // and filling a model; by the wall clock and by the main thread's processor time.
    std::vector<double> updates;
    std::vector<double> updatesCpu;
    std::vector<double> paints; // the longest repaint of the step
    std::vector<double> paintsCpu;
    std::vector<double> totals;  // all main-thread work of the step, painting included
    std::vector<double> results; // wall time from the call to the result on screen

    void report(benchmark::State& state)
    {
        if (updates.empty()) {
            return; // skipped with its error
        }
        for (std::vector<double>* each : {&updates, &updatesCpu, &paints, &paintsCpu, &totals, &results}) {
            std::sort(each->begin(), each->end());
        }
        state.counters["update_median_ms"] = updates.at(updates.size() / 2);
        state.counters["update_max_ms"] = updates.back();
        state.counters["update_cpu_max_ms"] = updatesCpu.back();
        state.counters["paint_max_ms"] = paints.back();
        state.counters["paint_cpu_max_ms"] = paintsCpu.back();
        state.counters["main_total_max_ms"] = totals.back();
        state.counters["to_result_median_ms"] = results.at(results.size() / 2);
    }
};

// Runs `step` and what it sets off on the main thread, until the page shows its result and
// has been painted; the iteration's time is the longest stretch of work other than painting.
template<typename Step>
void measureStep(benchmark::State& state, CollectionLibraryPage& page, MainThreadCosts& costs, Step step)
{
    app().restart();
    QElapsedTimer wall;
    const qint64 cpuBefore = threadCpuNs();
    wall.start();
    step();
    const double call = double(wall.nsecsElapsed()) / 1e6;
    const double callCpu = double(threadCpuNs() - cpuBefore) / 1e6;
    if (!waitUntil(page, [&] { return settledPage(page); })) {
        state.SkipWithError("the page never showed its result");
        return;
    }
    const double result = double(wall.nsecsElapsed()) / 1e6;
    settle(5);
    const double update = std::max(call, app().longestMs());
    costs.updates.push_back(update);
    costs.updatesCpu.push_back(std::max(callCpu, app().longestCpuMs()));
    costs.paints.push_back(app().longestPaintMs());
    costs.paintsCpu.push_back(app().longestPaintCpuMs());
    costs.totals.push_back(call + app().totalMs());
    costs.results.push_back(result);
    state.SetIterationTime(update / 1e3);
}

CollectionLibraryPage::Mode modeOf(int64_t arg)
{
    return arg == 0 ? CollectionLibraryPage::Mode::Shortcuts : CollectionLibraryPage::Mode::Records;
}

// A click on a collection's name: the largest, all of them and a typical one in turn.
// range(0): 0 in Shortcuts mode, 1 in Records mode.
void switchCollection(benchmark::State& state)
{
    ShownPage shown;
    CollectionLibraryPage& page = shown.page;
    page.setMode(modeOf(state.range(0)));
    waitUntil(page, [&] { return settledPage(page); });
    const QStringList order = {largestCollection, allCollectionsName, typicalCollection};
    MainThreadCosts costs;
    int step = 0;
    for (auto _ : state) {
        const QString next = order.at(step++ % order.size());
        measureStep(state, page, costs, [&] { page.selectCollection(next); });
    }
    costs.report(state);
    state.counters["records_shown"] = double(page.shownRecords().size());
}

// The Shortcuts / Records switch, back and forth. range(0): 0 on the largest collection, 1 on
// all collections.
void switchMode(benchmark::State& state)
{
    ShownPage shown;
    CollectionLibraryPage& page = shown.page;
    page.selectCollection(state.range(0) == 0 ? largestCollection : allCollectionsName);
    waitUntil(page, [&] { return settledPage(page); });
    MainThreadCosts costs;
    bool records = false;
    for (auto _ : state) {
        records = !records;
        measureStep(state, page, costs, [&] { page.setMode(records ? modeOf(1) : modeOf(0)); });
    }
    costs.report(state);
}

// Paging through the shortcut list, forwards and by jumps. range(0): 0 on the largest
// collection, 1 on all collections.
void paging(benchmark::State& state)
{
    ShownPage shown;
    CollectionLibraryPage& page = shown.page;
    page.selectCollection(state.range(0) == 0 ? largestCollection : allCollectionsName);
    waitUntil(page, [&] { return settledPage(page); });
    ShortcutListPage* list = page.shortcutList();
    const int pages = list->pageCount();
    MainThreadCosts costs;
    int step = 0;
    for (auto _ : state) {
        // Next, next, next, then a jump far away.
        const int target = step % 4 == 3 ? (step * 7919) % pages : (list->currentPage() + 1) % pages;
        ++step;
        measureStep(state, page, costs, [&] { list->setCurrentPage(target); });
    }
    costs.report(state);
    state.counters["pages"] = pages;
}

// A change of the library with the largest collection shown: the worker's whole load, its
// records, the counts and both duplicate analyses, up to the result on screen.
void fullLoadOfLargest(benchmark::State& state)
{
    ShownPage shown;
    CollectionLibraryPage& page = shown.page;
    page.selectCollection(largestCollection);
    page.setMode(CollectionLibraryPage::Mode::Records);
    waitUntil(page, [&] { return settledPage(page); });
    DB& db = library().db;
    std::vector<double> loads;
    double longestUpdate = 0;
    double longestPaint = 0;
    for (auto _ : state) {
        const quint64 before = page.collectionLoadGeneration();
        app().restart();
        QElapsedTimer wall;
        wall.start();
        db.setCollectionRecords(db.collectionRecords()); // as a reload from disk announces it
        if (!waitUntil(page, [&] { return page.collectionLoadGeneration() > before && !page.isLoading(); })) {
            state.SkipWithError("the load never finished");
            return;
        }
        const double seconds = double(wall.nsecsElapsed()) / 1e9;
        state.SetIterationTime(seconds);
        loads.push_back(seconds * 1000);
        settle(5);
        longestUpdate = std::max(longestUpdate, app().longestMs());
        longestPaint = std::max(longestPaint, app().longestPaintMs());
    }
    std::sort(loads.begin(), loads.end());
    state.counters["load_median_ms"] = loads.at(loads.size() / 2);
    state.counters["load_max_ms"] = loads.back();
    // Taking the load on the main thread: the records, the duplicate panels, the names' counts.
    state.counters["update_max_ms"] = longestUpdate;
    state.counters["paint_max_ms"] = longestPaint;
    state.counters["records_shown"] = double(page.shownRecords().size());
    state.counters["repeated_keys"] = double(page.duplicateShortcuts().size());
    state.counters["identical_groups"] = double(page.duplicateCollections().size());
}

QtMessageHandler defaultMessageHandler = nullptr;

// The offscreen platform says this at each window shown: noise among the figures.
void withoutSizeHintNoise(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (!message.contains(QLatin1String("propagateSizeHints"))) {
        defaultMessageHandler(type, context, message);
    }
}

} // namespace

BENCHMARK(switchCollection)
    ->ArgName("records")
    ->Arg(0)
    ->Arg(1)
    ->UseManualTime()
    ->Iterations(30)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(switchMode)->ArgName("all")->Arg(0)->Arg(1)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);
BENCHMARK(paging)->ArgName("all")->Arg(0)->Arg(1)->UseManualTime()->Iterations(40)->Unit(benchmark::kMillisecond);
BENCHMARK(fullLoadOfLargest)->UseManualTime()->Iterations(8)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // Widgets without a display: the page is drawn off screen, as in the tests.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    defaultMessageHandler = qInstallMessageHandler(withoutSizeHintNoise);
    TimedApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
