#pragma once

#include "exchange/shared_shortcut.h"
#include "language/shortcut_record.h"
#include "language/tavo_error.h"

#include <QList>
#include <QString>

#include <functional>
#include <optional>

class QObject;

namespace tavo {

class DB;

namespace ShareText {
inline const QString domain = QStringLiteral("TavoShare");
inline const QString couldNotPrepare = QStringLiteral("Tavo could not prepare the collection package.");
inline const QString notCollectionPackage = QStringLiteral("This file is not a valid Tavo collection package.");
inline const QString notShortcutPackage = QStringLiteral("This file is not a valid Tavo shortcut package.");
inline const QString selectAtLeastOne = QStringLiteral("Select at least one shortcut to share.");
inline const QString ready = QStringLiteral("Share package ready. Choose a sharing option.");
inline const QString importing = QStringLiteral("Importing shared shortcut(s)\u2026");
inline const QString chooseCaption = QStringLiteral("Choose an Tavo shortcut or collection package (.zip).");
inline const QString allCollections = QStringLiteral("All collections");
inline const QString allShortcutsTitle = QStringLiteral("Tavo shortcuts");
inline const QString selectedShortcutsTitle = QStringLiteral("Tavo selected shortcuts");
QString preparing(qsizetype count);         // "Preparing <n> shortcut(s) with attached media…"
QString prepareFailed(const QString& text); // "Could not prepare sharing package: <text>"
QString imported(qsizetype count);          // "Imported <n> shortcut(s) with their attached media."
QString importFailed(const QString& text);  // "Could not import shortcut package: <text>"
} // namespace ShareText

// Shortcut packages: zip files that carry shortcuts with their media between installations.
// Every function works on values and files only, so a worker thread may call it; the library is
// changed afterwards with addImportedClips, on the thread that owns the store.
namespace TavoShortcutShare {

// "Tavo-<title with each run of other characters than A-Z, a-z, 0-9, _ and - made "-">-<8 hex>.zip"
QString archiveFileName(const QString& title);

// Writes a package of `clips` to `target`, or when that is empty to a new archiveFileName in the
// temporary folder, and gives its path. Media is streamed from the shortcuts' files; a file
// that no longer exists is left out. The archive appears under its name only when complete.
Result<QString> makeArchive(const QList<Clip>& clips, const QString& title, std::optional<double> priceINR = {},
                            const QString& target = {});

// Reads a package file of either form and gives its shortcuts as new clips, their media copied
// into `attachmentsDir`. The whole archive and its JSON are checked before anything is unpacked
// or copied; a package's `media` names only files of that shortcut's own Media folder, and its
// `appPath` stays only when it is an installed application's desktop entry.
Result<QList<Clip>> importBundle(const QString& file, const QString& attachmentsDir);
// The older form alone: one shortcut.json and its Media folder.
Result<QList<Clip>> importArchive(const QString& file, const QString& attachmentsDir);

} // namespace TavoShortcutShare

// Adds imported clips at the start of the library, under the store's lock: a key that the list
// (as it is then) or an earlier imported clip uses gets a number (freeKey); a group that is a
// collection in another case takes the collection's spelling, and a new one joins the
// collections. Gives the error to tell when the library could not be written. The library's
// work runs where the store writes; `done` follows on the store's thread, unless `context` is gone.
void addImportedClips(DB& db, QList<Clip> clips, QObject* context,
                      const std::function<void(const std::optional<TavoError>&)>& done);
// The same, waiting for the outcome.
std::optional<TavoError> addImportedClips(DB& db, QList<Clip> clips);

} // namespace tavo
