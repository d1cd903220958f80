#pragma once

#include "language/live_tokens.h"
#include "language/shortcut_record.h"
#include "language/triggers.h"

#include <QMimeData>
#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class QNetworkAccessManager;

namespace tavo {

class DB;
class Pasteboard;

// The image extensions that are pasted as image data rather than as files.
bool isImageExtension(const QString& path);

// What one expansion puts on the clipboard.
struct ClipboardRequest
{
    Clip clip;
    bool includeText = true;
    bool includeMedia = false;
    ShortcutTextStyle style;
    std::optional<QString> textOverride;    // instead of the clip's text with its tokens filled
    std::optional<QStringList> tabularRows; // rows of a batch, also offered as a table
    bool mediaAsFiles = false;              // images as files rather than as image data
};

// The clipboard content for a request. `clipboardValue` is what the clipboard held before, for
// {{clipboard}}. Text is text/plain; styled text adds text/html and text/rtf; rows add
// text/tab-separated-values and an HTML table; images go as image data under their image/* type
// when they can be read, every other file (and an unreadable image) as a file URL
// (text/uri-list and x-special/gnome-copied-files).
std::unique_ptr<QMimeData> clipboardContent(const ClipboardRequest& request, const QString& clipboardValue,
                                            const LiveTokenSources& sources);

// Reads the clipboard's text first (for {{clipboard}}), then replaces its content. Returns the
// notice to show: "Media copied to clipboard · choose Paste in the target app" or "<key> copied".
QString prepareClipboard(Pasteboard& pasteboard, const ClipboardRequest& request, const LiveTokenSources& sources);

// Several shortcuts at once: their texts on one line each or joined by spaces, their media (at
// most ten) as one contact sheet or archive. Returns the notice.
QString prepareBatchClipboard(Pasteboard& pasteboard, const QList<Clip>& clips, const QString& separator,
                              const QString& attachmentsDir, const LiveTokenSources& sources);

// One file stays as it is; several images become a contact sheet (PNG), anything else a zip
// archive, both saved in `attachmentsDir`. On any failure, the existing files as they were.
QStringList aggregateBatchMedia(const QStringList& paths, const QString& attachmentsDir);

// The encyclopedia host the default portraits come from; TAVO_WIKIPEDIA_URL overrides it (tests,
// mirrors).
QString wikipediaBaseUrl();

// Fetches the portrait of a seed shortcut (its defaultMediaArticle) through the page-summary
// interface into the profile's Attachments, stores the path in the clip's files and saves.
// `done` gets whether the clip has its file now; on failure the notice is
// "Could not download the default portrait. Check your internet connection and try again."
void downloadDefaultMedia(DB& db, const Clip& clip, QNetworkAccessManager& network,
                          std::function<void(bool ok, const QString& notice)> done);

} // namespace tavo
