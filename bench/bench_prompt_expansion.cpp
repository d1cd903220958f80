// "Expand shortcuts" on the main thread: a 2 KB prompt against 5,000 shortcuts in 500 collections,
// aiming under 100 ms.

#include "ai/prompt_expansion.h"

#include <benchmark/benchmark.h>

#include <QRandomGenerator>

using namespace tavo;

namespace {

const QStringList syllables{QStringLiteral("ka"), QStringLiteral("ro"), QStringLiteral("mi"), QStringLiteral("te"),
                            QStringLiteral("su"), QStringLiteral("an"), QStringLiteral("lo"), QStringLiteral("ve"),
                            QStringLiteral("ni"), QStringLiteral("da"), QStringLiteral("po"), QStringLiteral("re")};

QString word(QRandomGenerator& random, int parts)
{
    QString text;
    for (int i = 0; i < parts; ++i) {
        text += syllables.at(random.bounded(syllables.size()));
    }
    return text;
}

struct Library
{
    QList<Clip> clips;
    QList<CollectionRecord> records;
};

// Keys of one to four syllables, so many are parts of the prompt's words and of one another.
const Library& library()
{
    static const Library built = [] {
        QRandomGenerator random(7);
        Library l;
        for (int i = 0; i < 5000; ++i) {
            Clip clip;
            clip.key = QLatin1Char('/') + word(random, 1 + i % 4) + QString::number(i % 7 == 0 ? i : 0).left(i % 3);
            clip.name = QStringLiteral("Shortcut %1").arg(i);
            clip.text = QStringLiteral("Dear {{weekday}} reader, ") + QString(200, u'x') + QStringLiteral(" {{date}}");
            clip.group = QStringLiteral("Collection %1").arg(i % 500);
            if (i % 10 == 0) {
                clip.files = {QStringLiteral("/media/%1.png").arg(i)};
            }
            l.clips.append(clip);
        }
        return l;
    }();
    return built;
}

QString prompt(int mentions)
{
    QRandomGenerator random(11);
    QString text;
    int mentioned = 0;
    while (text.size() < 2048) {
        if (mentioned < mentions && random.bounded(4) == 0) {
            const Clip& clip = library().clips.at(random.bounded(library().clips.size()));
            text += (mentioned % 5 == 0 ? clip.group : clip.key) + QLatin1Char(' ');
            ++mentioned;
        } else {
            text += word(random, 1 + random.bounded(4)) + QStringLiteral(", ");
        }
    }
    return text.left(2048);
}

void BM_ExpandPromptMentions(benchmark::State& state)
{
    const Library& l = library();
    const QString text = prompt(int(state.range(0)));
    for (auto _ : state) {
        const PromptShortcutExpansion result = expandPromptShortcutMentions(text, l.clips, l.records);
        benchmark::DoNotOptimize(result.text.size());
    }
}
// Mentions in the prompt; every fifth names a whole collection.
BENCHMARK(BM_ExpandPromptMentions)->Arg(0)->Arg(10)->Arg(40)->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
