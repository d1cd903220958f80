#include "picker/picker_panel.h"
#include "picker/picker_row_delegate.h"
#include "picker/picker_rows.h"
#include "picker/picker_search.h"
#include "shell/ui/design.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QListWidget>
#include <QPainter>
#include <QTemporaryDir>

#include <memory>

using namespace tavo;

namespace {

// The list's size in a popup of the default share of a 1440 by 900 screen.
const QSize rowsSize(677, 285);

// 100,000 shortcuts, every other one with a photo among 32 files of 1600 by 1200 pixels, and the
// first page of results the search gives for them.
struct Library
{
    QTemporaryDir dir;
    Defaults defaults{dir.filePath(QStringLiteral("defaults.json"))};
    DB db{defaults, dir.filePath(QStringLiteral("Tavo"))};
    QList<Clip> firstPage;

    Library()
    {
        QStringList pictures;
        for (int i = 0; i < 32; ++i) {
            QImage picture(1600, 1200, QImage::Format_RGB32);
            QPainter painter(&picture);
            QLinearGradient gradient(0, 0, 1600, 1200);
            gradient.setColorAt(0, QColor::fromHsv(i * 11, 200, 230));
            gradient.setColorAt(1, QColor::fromHsv(i * 11 + 120, 160, 90));
            painter.fillRect(picture.rect(), gradient);
            painter.end();
            pictures << dir.filePath(
                QStringLiteral("photo%1.%2").arg(i).arg(i % 2 ? QLatin1StringView("png") : QLatin1StringView("jpg")));
            picture.save(pictures.last());
        }
        QList<Clip> clips;
        for (int i = 0; i < 100'000; ++i) {
            Clip clip;
            clip.key = QStringLiteral("/key%1").arg(i);
            clip.name = QStringLiteral("Shortcut number %1").arg(i);
            clip.text = QStringLiteral("Dear {{clipboard}},\nthank you for order %1.").arg(i);
            clip.group = QStringLiteral("Collection %1").arg(i % 30);
            if (i % 2 == 0) {
                clip.files = {pictures.at((i / 2) % pictures.size())};
            }
            clips.append(clip);
        }
        db.setClips(clips);

        // Two pages: more rows than the list shows.
        PickerSearch search;
        search.restart(db);
        while (search.results().size() < 2 * PickerSearch::pageSize) {
            search.loadMore(db);
            QCoreApplication::processEvents();
        }
        while (search.isLoading()) {
            QCoreApplication::processEvents();
        }
        firstPage = search.results();
    }
};

Library& library()
{
    static Library instance;
    return instance;
}

bool allThumbnailsShown(const QListWidget& rows)
{
    for (int row = 0; row < rows.count(); ++row) {
        const QListWidgetItem* item = rows.item(row);
        if (!item->data(PickerImageRole).toString().isEmpty() && item->data(PickerThumbnailRole).isNull()) {
            return false;
        }
    }
    return true;
}

void waitForThumbnails(const QListWidget& rows)
{
    QElapsedTimer waited;
    waited.start();
    while (!allThumbnailsShown(rows) && waited.elapsed() < 10'000) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
    }
}

// From the results to the rows painted, with none of their thumbnails made yet: what the main
// thread spends before the first page shows. The thumbnails follow on worker threads; the
// counter `thumbnails_ms` is how long until the last of them is in its row.
void firstPageColdCache(benchmark::State& state)
{
    const Library& lib = library();
    double thumbnailsMs = 0;
    for (auto _ : state) {
        state.PauseTiming();
        auto rows = std::make_unique<PickerRows>();
        rows->resize(rowsSize);
        rows->show();
        QCoreApplication::processEvents();
        QElapsedTimer sinceResults;
        sinceResults.start();
        state.ResumeTiming();

        rows->showClips(lib.firstPage);
        rows->viewport()->repaint();

        state.PauseTiming();
        waitForThumbnails(*rows);
        thumbnailsMs += double(sinceResults.nsecsElapsed()) / 1e6;
        if (!allThumbnailsShown(*rows)) {
            state.SkipWithError("thumbnails were not made");
        }
        rows.reset();
        state.ResumeTiming();
    }
    state.counters["thumbnails_ms"] = benchmark::Counter(thumbnailsMs, benchmark::Counter::kAvgIterations);
    state.counters["rows"] = double(lib.firstPage.size());
}

// The same at a later opening, every thumbnail already made.
void firstPageWarmCache(benchmark::State& state)
{
    const Library& lib = library();
    PickerRows rows;
    rows.resize(rowsSize);
    rows.show();
    rows.showClips(lib.firstPage);
    waitForThumbnails(rows);
    for (auto _ : state) {
        state.PauseTiming();
        rows.showClips({});
        QCoreApplication::processEvents();
        state.ResumeTiming();

        rows.showClips(lib.firstPage);
        rows.viewport()->repaint();
        if (!allThumbnailsShown(rows)) {
            state.SkipWithError("a thumbnail was not taken from the cache");
        }
    }
}

// The whole opening over 100,000 shortcuts: the window shown, the search's steps and the first
// page of rows painted, in event-loop turns as the application runs them.
void openPicker(benchmark::State& state)
{
    Library& lib = library();
    PickerPanel panel(lib.defaults);
    const auto* rows = panel.findChild<QListWidget*>(QStringLiteral("pickerRows"));
    for (auto _ : state) {
        panel.showFor(lib.db);
        while (rows->count() < PickerSearch::pageSize || panel.search().isLoading()) {
            QCoreApplication::processEvents();
        }
        panel.repaint();
        state.PauseTiming();
        panel.hidePanel();
        QCoreApplication::processEvents();
        state.ResumeTiming();
    }
}

} // namespace

BENCHMARK(firstPageColdCache)->Unit(benchmark::kMillisecond)->Iterations(30);
BENCHMARK(firstPageWarmCache)->Unit(benchmark::kMillisecond);
BENCHMARK(openPicker)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv)
{
    // Rows are widgets: an application without a display, as the unit tests have.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    design::useIconThemeFor(QApplication::palette());
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
