#include "builder/calculations.h"
#include "builder/output/text_pdf_canvas.h"
#include "builder/template_render.h"

#include <QFileInfo>
#include <QGuiApplication>
#include <QTemporaryDir>

#include <benchmark/benchmark.h>

using namespace tavo;

namespace {

// 30 typed values and 20 formulas that use them and each other, as a long bill would.
BuilderValues thirtyValues()
{
    BuilderValues values;
    for (int i = 1; i <= 30; ++i) {
        values.insert(QStringLiteral("Value %1").arg(i), QStringLiteral("₹%1,250.50").arg(i));
    }
    return values;
}

QString twentyFormulas()
{
    QStringList lines;
    for (int i = 1; i <= 20; ++i) {
        lines.append(
            i == 1
                ? QStringLiteral("Result 1 = Value 1 * 18%")
                : QStringLiteral("Result %1 = Result %2 + Value %1 * (1 - Value %3%)").arg(i).arg(i - 1).arg(i + 10));
    }
    return lines.join(u'\n');
}

// A 200-row table of five tokens a row: 1,000 tokens, each with its value.
struct Table
{
    QString templateText;
    StyledText styled;
    BuilderValues values;
};

const Table& table()
{
    static const Table built = [] {
        Table t;
        const QStringList columns{QStringLiteral("item"), QStringLiteral("qty"), QStringLiteral("rate"),
                                  QStringLiteral("amount"), QStringLiteral("note")};
        QStringList lines{QStringLiteral("| Item | Qty | Rate | Amount | Note |"),
                          QStringLiteral("|---|---|---|---|---|")};
        RunStyle bold;
        bold.bold = true;
        appendRun(t.styled.runs, lines.join(u'\n') + u'\n', bold);
        for (int row = 1; row <= 200; ++row) {
            QString line = QStringLiteral("|");
            for (const QString& column : columns) {
                const QString key = column + QString::number(row);
                line += QStringLiteral(" {{") + key + QStringLiteral("}} |");
                t.values.insert(key, column == QLatin1StringView("item") ? QStringLiteral("Tea, green, 250 g")
                                                                         : QStringLiteral("₹1,180.00"));
            }
            lines.append(line);
            appendRun(t.styled.runs, line + u'\n', row % 2 ? RunStyle() : bold);
        }
        t.templateText = lines.join(u'\n');
        return t;
    }();
    return built;
}

void BM_Formulas20On30Values(benchmark::State& state)
{
    const BuilderValues values = thirtyValues();
    const QString formulas = twentyFormulas();
    for (auto _ : state) {
        benchmark::DoNotOptimize(resolveBuilderCalculations(formulas, values));
    }
}
BENCHMARK(BM_Formulas20On30Values)->Unit(benchmark::kMicrosecond);

void BM_RenderPlainTable200Rows(benchmark::State& state)
{
    const Table& t = table();
    for (auto _ : state) {
        benchmark::DoNotOptimize(renderLocalTemplate(t.templateText, QString(), QString(), t.values));
    }
}
BENCHMARK(BM_RenderPlainTable200Rows)->Unit(benchmark::kMicrosecond);

void BM_RenderAttributedTable200Rows(benchmark::State& state)
{
    const Table& t = table();
    for (auto _ : state) {
        benchmark::DoNotOptimize(renderAttributedTemplate(t.styled, QString(), QString(), t.values));
    }
}
BENCHMARK(BM_RenderAttributedTable200Rows)->Unit(benchmark::kMicrosecond);

void BM_MakePdfTable200Rows(benchmark::State& state)
{
    const Table& t = table();
    const QString text = renderLocalTemplate(t.templateText, QString(), QString(), t.values);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("table.pdf"));
    for (auto _ : state) {
        const Result<int> pages =
            AITextPDFCanvas::makePDF(QStringLiteral("Invoice"), text, std::nullopt, QString(), QStringLiteral("Bill"),
                                     QString(), 11, false, false, false, QStringLiteral("Ink"), path);
        if (!pages) {
            state.SkipWithError("the PDF was not written");
            break;
        }
        state.counters["pages"] = *pages;
    }
    state.counters["bytes"] = double(QFileInfo(path).size());
}
BENCHMARK(BM_MakePdfTable200Rows)->Unit(benchmark::kMillisecond);

} // namespace

// The PDF draws text, which takes a GUI application; off screen, so no display is needed.
int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
