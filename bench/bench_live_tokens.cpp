#include "language/live_tokens.h"

#include <benchmark/benchmark.h>

namespace {

const QString prose =
    QStringLiteral("Thank you for your message. I have looked into the matter and will get back to you "
                   "with the details as soon as the team has had a chance to review them. ");

tavo::LiveTokenSources fixedSources()
{
    tavo::LiveTokenSources sources;
    const QDateTime moment(QDate(2025, 1, 5), QTime(20, 7, 42), Qt::UTC);
    sources.now = [moment] { return moment; };
    sources.locale = "en_US";
    return sources;
}

// About 1 KB of a typical signature or reply, with or without tokens between the sentences.
QString sampleText(bool withTokens)
{
    static const char* const tokens[] = {
        "{{date}}",  "{{time}}", "{{datetime}}", "{{timestamp}}", "{{weekday}}",
        "{{month}}", "{{year}}", "{{unix}}",     "{{uuid}}",      "{{worldclock:tokyo}}"};
    QString text;
    for (const char* token : tokens) {
        text += prose.left(100);
        if (withTokens)
            text += QLatin1StringView(token);
    }
    return text;
}

void expandTokensTenTokens(benchmark::State& state)
{
    const QString text = sampleText(true);
    const tavo::LiveTokenSources sources = fixedSources();
    for (auto _ : state)
        benchmark::DoNotOptimize(tavo::expandTokens(text, std::nullopt, sources));
    state.SetBytesProcessed(state.iterations() * text.size() * 2);
}

void expandTokensNoTokens(benchmark::State& state)
{
    const QString text = sampleText(false).leftJustified(sampleText(true).size(), QLatin1Char('.'));
    const tavo::LiveTokenSources sources = fixedSources();
    for (auto _ : state)
        benchmark::DoNotOptimize(tavo::expandTokens(text, std::nullopt, sources));
    state.SetBytesProcessed(state.iterations() * text.size() * 2);
}

} // namespace

BENCHMARK(expandTokensTenTokens);
BENCHMARK(expandTokensNoTokens);
