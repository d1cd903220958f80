#pragma once

#include "language/shortcut_record.h"
#include "language/tavo_error.h"
#include "platform/net/downloader.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QStringView>

#include <atomic>
#include <functional>

class QObject;

namespace tavo {

class DB;

using CSVRows = QList<QStringList>;

// The header line of an export; its columns are the ones an import reads, in this order.
inline const QString csvHeader = QStringLiteral("shortcut,expansion,name,collection,media URLs");

// The text of a CSV file's bytes: UTF-8, UTF-16 when a byte-order mark says so, and
// Windows-1252 for bytes that are not UTF-8 (spreadsheets on the other desktops still write it).
// A UTF-8 byte-order mark goes.
QString decodeCSVBytes(const QByteArray& bytes);

// The rows of CSV text. A leading byte-order mark goes. The delimiter is the comma when the
// first row has one outside quotes, else the tab (cells copied from a spreadsheet), else the
// semicolon. A quotation mark opens quotes anywhere in a cell; inside, two give one and a single
// one closes. CRLF and a lone CR end a row as LF does; line breaks inside quotes become LF. A row
// whose cells are all empty is dropped. `progress` (units done, units in all) is called now and
// then; when it returns false the parse stops and gives nothing.
CSVRows parseCSV(QStringView text, const std::function<bool(qsizetype done, qsizetype total)>& progress = {});

// One shortcut a line after the header: key, text, name, its collections joined with "; " and
// its files joined with "; ". A cell holding a comma, a quotation mark or a line break is quoted.
// Lines are joined with line feeds.
QString exportCSVText(const QList<Clip>& clips);

// Writes exportCSVText as UTF-8, atomically: "Exported <n> shortcuts to <file name>", or an error
// whose description is "Export failed: <text>".
Result<QString> exportCSV(const QList<Clip>& clips, const QString& path);

// What a worker needs to follow and stop an import.
struct CSVImportControl
{
    std::function<void(int done, int total)> progress; // rows
    // The file being downloaded: bytes so far and the declared size, or -1.
    std::function<void(qint64 received, qint64 total)> downloadProgress;
    const std::atomic_bool* canceled = nullptr;
    DownloadLimits limits = DownloadLimits::standard();
};

// The shortcuts an import makes, ready to add, and the media fetched for them.
struct PreparedCSVImport
{
    QList<Clip> clips;
    QStringList downloadedFiles;
    int failedDownloads = 0;
    QStringList failures;  // "<address>: <why>", one per failed download
    QString error;         // set when nothing could be imported; nothing was downloaded then
    bool canceled = false; // what was downloaded is removed already
};

// Turns rows into new shortcuts, off the main thread: reads no store. A header row (first cell
// "shortcut" or "trigger") and a row whose first cell is blank are skipped. The collection cell,
// split at ";", names the groups, each taking the spelling of a known collection that equals it
// in any case; without it `defaultGroups` (in the order of `knownCollections`), else "Imported".
// The key is the first cell with the suffix of the first group. With `downloadMediaURLs`, the
// http and https addresses of the media cell are downloaded into `attachmentsDir`; a failed one
// is counted and the shortcut is made without it.
PreparedCSVImport prepareCSVImport(const CSVRows& rows, bool downloadMediaURLs, const QStringList& defaultGroups,
                                   const QStringList& knownCollections, const QString& attachmentsDir,
                                   const CSVImportControl& control = {});

// Appends the prepared shortcuts to the list as it is now, under the store's lock, and adds their
// new group names to the collections. "Imported <n> shortcuts · <m> media downloaded", with
// " · <k> download(s) failed" when some failed. On failure nothing is added and the downloads
// are removed.
Result<QString> applyCSVImport(DB& db, const PreparedCSVImport& import);
// The same with the library's work where the store writes; `done` gets the status on the store's
// thread, unless `context` is gone by then.
void applyCSVImport(DB& db, const PreparedCSVImport& import, QObject* context,
                    const std::function<void(const Result<QString>&)>& done);

// Removes what an import that will not be applied downloaded.
void discardCSVImport(const PreparedCSVImport& import);

// prepareCSVImport into the store's Attachments, then applyCSVImport; for a caller that may wait.
Result<QString> importRowsAndDownload(DB& db, const CSVRows& rows, bool downloadMediaURLs,
                                      const QStringList& defaultGroups, const CSVImportControl& control = {});

} // namespace tavo
