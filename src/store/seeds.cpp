#include "store/seeds.h"

#include "language/shortcut_record.h"
#include "store/profile_store.h"

#include <QList>
#include <QSet>
#include <QStringList>

#include <algorithm>
#include <array>

namespace tavo {

namespace {

struct SeedRow
{
    const char* stem;
    const char* name;
    const char* detail; // the address of a link, the article title of a portrait
};

constexpr std::array websites{
    SeedRow{"google", "Google", "https://www.google.com/"},
    SeedRow{"facebook", "Facebook", "https://www.facebook.com/"},
    SeedRow{"fb", "Facebook", "https://www.facebook.com/"},
    SeedRow{"linkedin", "LinkedIn", "https://www.linkedin.com/"},
    SeedRow{"youtube", "YouTube", "https://www.youtube.com/"},
    SeedRow{"gmail", "Gmail", "https://mail.google.com/"},
    SeedRow{"instagram", "Instagram", "https://www.instagram.com/"},
    SeedRow{"x", "X", "https://x.com/"},
    SeedRow{"wikipedia", "Wikipedia", "https://www.wikipedia.org/"},
    SeedRow{"reddit", "Reddit", "https://www.reddit.com/"},
    SeedRow{"amazon", "Amazon", "https://www.amazon.com/"},
};

constexpr std::array aiEngines{
    SeedRow{"chatgpt", "ChatGPT", "https://chatgpt.com/"},
    SeedRow{"gemini", "Gemini", "https://gemini.google.com/app"},
    SeedRow{"claude", "Claude", "https://claude.ai/new"},
    SeedRow{"perplexity", "Perplexity", "https://www.perplexity.ai/"},
    SeedRow{"copilot", "Microsoft Copilot", "https://copilot.microsoft.com/"},
    SeedRow{"grok", "Grok", "https://grok.com/"},
    SeedRow{"deepseek", "DeepSeek", "https://chat.deepseek.com/"},
    SeedRow{"mistral", "Mistral Le Chat", "https://chat.mistral.ai/chat"},
    SeedRow{"poe", "Poe", "https://poe.com/"},
    SeedRow{"metaai", "Meta AI", "https://www.meta.ai/"},
};

// The portraits are fetched on first use, so a new profile costs no downloads.
constexpr std::array portraits{
    SeedRow{"einstein", "Albert Einstein", "Albert_Einstein"},
    SeedRow{"curie", "Marie Curie", "Marie_Curie"},
    SeedRow{"lincoln", "Abraham Lincoln", "Abraham_Lincoln"},
    SeedRow{"mandela", "Nelson Mandela", "Nelson_Mandela"},
    SeedRow{"davinci", "Leonardo da Vinci", "Leonardo_da_Vinci"},
    SeedRow{"shakespeare", "William Shakespeare", "William_Shakespeare"},
    SeedRow{"newton", "Isaac Newton", "Isaac_Newton"},
    SeedRow{"gandhi", "Mahatma Gandhi", "Mahatma_Gandhi"},
    SeedRow{"kahlo", "Frida Kahlo", "Frida_Kahlo"},
    SeedRow{"turing", "Alan Turing", "Alan_Turing"},
};

const QString websitesGroup = QStringLiteral("Websites & URLs");
const QString aiEnginesGroup = QStringLiteral("AI Engines");
const QString mediaGroup = QStringLiteral("Media files");
const QString applicationsGroup = QStringLiteral("Applications");
const QString openTavoKey = QStringLiteral("/ez");

Clip seedClip(const SeedRow& row, const QString& group)
{
    Clip clip;
    clip.key = collectionTrigger(u'/' + QString::fromLatin1(row.stem), group);
    clip.name = QString::fromLatin1(row.name);
    clip.group = group;
    return clip;
}

Clip linkClip(const SeedRow& row, const QString& group)
{
    Clip clip = seedClip(row, group);
    clip.directMediaPaste = false;
    clip.webURL = QString::fromLatin1(row.detail);
    return clip;
}

Clip portraitClip(const SeedRow& row)
{
    Clip clip = seedClip(row, mediaGroup);
    clip.directMediaPaste = true;
    clip.defaultMediaArticle = QString::fromLatin1(row.detail);
    return clip;
}

} // namespace

void seedDefaultShortcuts(DB& db, const QString& ownApplicationId, const QString& ownApplicationPath)
{
    QList<Clip> clips = db.clips();
    bool clipsChanged = false;

    QSet<QString> keys;
    for (const Clip& clip : clips) {
        keys.insert(clip.key.toCaseFolded());
    }
    const auto addIfMissing = [&](Clip clip) {
        if (keys.contains(clip.key.toCaseFolded())) {
            return;
        }
        keys.insert(clip.key.toCaseFolded());
        clips.append(std::move(clip));
        clipsChanged = true;
    };
    for (const SeedRow& row : websites) {
        addIfMissing(linkClip(row, websitesGroup));
    }
    for (const SeedRow& row : aiEngines) {
        addIfMissing(linkClip(row, aiEnginesGroup));
    }
    for (const SeedRow& row : portraits) {
        addIfMissing(portraitClip(row));
    }

    Clip openTavo;
    openTavo.key = openTavoKey;
    openTavo.name = QStringLiteral("Open Tavo");
    openTavo.group = applicationsGroup;
    openTavo.appBundleIdentifier = ownApplicationId;
    openTavo.appPath = ownApplicationPath;
    const auto existing =
        std::find_if(clips.begin(), clips.end(), [](const Clip& clip) { return clip.key == openTavoKey; });
    if (existing == clips.end()) {
        clips.append(std::move(openTavo));
        clipsChanged = true;
    } else {
        // The replacement keeps the old identity, so seeding again changes nothing that refers to it.
        openTavo.id = existing->id;
        if (*existing != openTavo) {
            *existing = std::move(openTavo);
            clipsChanged = true;
        }
    }
    if (clipsChanged) {
        db.setClips(std::move(clips));
    }

    QStringList collections = db.collections();
    const qsizetype collectionCount = collections.size();
    for (const QString& name : {websitesGroup, aiEnginesGroup, mediaGroup, applicationsGroup}) {
        if (!collections.contains(name, Qt::CaseInsensitive)) {
            collections.append(name);
        }
    }
    if (collections.size() != collectionCount) {
        db.setCollections(std::move(collections));
    }

    db.save();
}

} // namespace tavo
