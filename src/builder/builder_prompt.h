#pragma once

#include "builder/builder_command.h"

#include <QString>
#include <QStringList>

#include <optional>

namespace tavo {

class Defaults;
struct LiveTokenSources;

// A prompt drafted from an app command typed after "\p-": the app's action, a line per slot, and
// the user's request after "-prompt-"; the files of the shortcuts and records it names.
struct BuilderPromptDraft
{
    QString text;
    QStringList referencePaths;
};

// The draft for `payload` (already trimmed), or nothing when its command part names no app: the
// payload is free text then. `clips` and `records` are what the user may see (hidden collections
// left out by the caller).
std::optional<BuilderPromptDraft> builderPromptDraft(const QString& payload, const QList<Clip>& clips,
                                                     const QList<CollectionRecord>& records, const Defaults& defaults,
                                                     const LiveTokenSources& sources);

} // namespace tavo
