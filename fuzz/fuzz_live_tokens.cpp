#include "fakes/fake_pasteboard.h"
#include "language/live_tokens.h"

#include <cstddef>
#include <cstdint>
#include <functional>

// Any text goes through every replacer: the clipboard is read at most once per text, a text
// without "{{" comes back as it was, and a given clipboard value keeps the pasteboard unread.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    tavo::test::FakePasteboard pasteboard;
    pasteboard.text = QStringLiteral("{{date}} pasted {{clipboard}}");
    tavo::LiveTokenSources sources;
    sources.pasteboard = &pasteboard;
    sources.now = [] { return QDateTime(QDate(2025, 1, 5), QTime(20, 7, 42, 789), Qt::UTC); };
    sources.locale = "en_US";

    const bool hasToken = text.contains(QLatin1StringView("{{"));
    const auto check = [&](const std::function<QString()>& expand, int maxReads) {
        pasteboard.reads = 0;
        const QString result = expand();
        if (pasteboard.reads > maxReads || (!hasToken && result != text))
            __builtin_trap();
    };
    check([&] { return tavo::expandTokens(text, std::nullopt, sources); }, 1);
    check([&] { return tavo::expandTokens(text, text, sources); }, 0);
    check([&] { return tavo::expandLiveTemplateTokens(text, sources); }, 1);
    check([&] { return tavo::promptExpandTokens(text, sources); }, 1);
    return 0;
}
