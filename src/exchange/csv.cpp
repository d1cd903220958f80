#include "exchange/csv.h"

#include "exchange/media_download.h"
#include "store/profile_store.h"

#include <QFile>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QRegularExpression>
#include <QSaveFile>
#include <QStringDecoder>
#include <QUrl>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

namespace tavo {

namespace {

constexpr QChar quote = u'"';
constexpr qsizetype progressStep = 1 << 16;

// What bytes 0x80 to 0x9F stand for in Windows-1252; the five it leaves undefined keep their
// code point, as browsers decode them.
constexpr char16_t windows1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,
};

QString fromWindows1252(QByteArrayView bytes)
{
    QString text(bytes.size(), Qt::Uninitialized);
    QChar* out = text.data();
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        *out++ = QChar(value >= 0x80 && value < 0xA0 ? windows1252High[value - 0x80] : char16_t(value));
    }
    return text;
}

// The delimiter the first row uses; see parseCSV.
QChar detectDelimiter(QStringView text)
{
    bool quoted = false;
    bool tab = false;
    bool semicolon = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (quoted) {
            if (c == quote) {
                if (i + 1 < text.size() && text[i + 1] == quote) {
                    ++i;
                } else {
                    quoted = false;
                }
            }
            continue;
        }
        if (c == quote) {
            quoted = true;
        } else if (c == u',') {
            return u',';
        } else if (c == u'\t') {
            tab = true;
        } else if (c == u';') {
            semicolon = true;
        } else if (c == u'\n' || c == u'\r') {
            break;
        }
    }
    return tab ? u'\t' : semicolon ? u';' : u',';
}

QString csvCell(const QString& value)
{
    bool needsQuotes = false;
    for (const QChar c : value) {
        if (c == u',' || c == quote || c == u'\n' || c == u'\r') {
            needsQuotes = true;
            break;
        }
    }
    if (!needsQuotes) {
        return value;
    }
    QString quoted = value;
    quoted.replace(quote, QStringLiteral("\"\""));
    return quote + quoted + quote;
}

// The known spelling of `name` among `known`, ignoring case; `name` itself when none.
QString knownSpelling(const QString& name, const QStringList& known)
{
    for (const QString& candidate : known) {
        if (candidate.compare(name, Qt::CaseInsensitive) == 0) {
            return candidate;
        }
    }
    return name;
}

bool containsIgnoringCase(const QStringList& list, const QString& name)
{
    return list.contains(name, Qt::CaseInsensitive);
}

QStringList orderedDefaultGroups(const QStringList& defaultGroups, const QStringList& knownCollections)
{
    QStringList ordered;
    for (const QString& known : knownCollections) {
        if (containsIgnoringCase(defaultGroups, known) && !containsIgnoringCase(ordered, known)) {
            ordered.append(known);
        }
    }
    for (const QString& given : defaultGroups) {
        const QString name = given.trimmed();
        if (!name.isEmpty() && !containsIgnoringCase(ordered, name)) {
            ordered.append(name);
        }
    }
    return ordered;
}

QList<QUrl> mediaUrls(const QString& cell)
{
    static const QRegularExpression separators(QStringLiteral("[;\\r\\n]"));
    QList<QUrl> urls;
    for (const QString& part : cell.split(separators, Qt::SkipEmptyParts)) {
        const QUrl url(part.trimmed());
        const QString scheme = url.scheme().toLower();
        if (url.isValid() && !url.host().isEmpty() &&
            (scheme == QLatin1StringView("http") || scheme == QLatin1StringView("https"))) {
            urls.append(url);
        }
    }
    return urls;
}

// Why the media folder is not there to write into, or nothing when it is.
std::optional<QString> makeMediaFolder(const QString& path)
{
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path.toStdString()), error);
    if (error) {
        return QString::fromLocal8Bit(error.message());
    }
    if (!QFileInfo(path).isDir()) {
        return QString::fromLocal8Bit(std::strerror(ENOTDIR));
    }
    return std::nullopt;
}

void removeFiles(const QStringList& paths)
{
    for (const QString& path : paths) {
        QFile::remove(path);
    }
}

} // namespace

QString decodeCSVBytes(const QByteArray& bytes)
{
    if (bytes.startsWith("\xEF\xBB\xBF")) {
        return QString::fromUtf8(QByteArrayView(bytes).sliced(3));
    }
    if (bytes.startsWith("\xFF\xFE") || bytes.startsWith("\xFE\xFF")) {
        QStringDecoder decoder(bytes.startsWith("\xFF\xFE") ? QStringDecoder::Utf16LE : QStringDecoder::Utf16BE,
                               QStringDecoder::Flag::Stateless);
        return decoder(QByteArrayView(bytes).sliced(2));
    }
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8(bytes);
    if (!utf8.hasError()) {
        return text;
    }
    return fromWindows1252(bytes);
}

CSVRows parseCSV(QStringView text, const std::function<bool(qsizetype, qsizetype)>& progress)
{
    if (text.startsWith(QChar(0xFEFF))) {
        text = text.mid(1);
    }
    const QChar delimiter = detectDelimiter(text);
    CSVRows rows;
    QStringList row;
    QString cell;
    bool quoted = false;
    bool rowStarted = false;

    const auto endCell = [&] {
        row.append(cell);
        cell.clear();
    };
    const auto endRow = [&] {
        endCell();
        const bool empty = std::all_of(row.cbegin(), row.cend(), [](const QString& c) { return c.isEmpty(); });
        if (!empty) {
            rows.append(std::move(row));
        }
        row = QStringList();
        rowStarted = false;
    };

    const qsizetype size = text.size();
    const QChar* data = text.data();
    qsizetype nextReport = progressStep;
    for (qsizetype i = 0; i < size; ++i) {
        if (i >= nextReport && progress) {
            if (!progress(i, size)) {
                return {};
            }
            nextReport = i + progressStep;
        }
        const QChar c = data[i];
        if (quoted) {
            if (c == quote) {
                if (i + 1 < size && data[i + 1] == quote) {
                    cell.append(quote);
                    ++i;
                } else {
                    quoted = false;
                }
            } else if (c == u'\r') {
                cell.append(u'\n');
                if (i + 1 < size && data[i + 1] == u'\n') {
                    ++i;
                }
            } else {
                cell.append(c);
            }
            continue;
        }
        rowStarted = true;
        if (c == delimiter) {
            endCell();
        } else if (c == u'\n') {
            endRow();
        } else if (c == u'\r') {
            endRow();
            if (i + 1 < size && data[i + 1] == u'\n') {
                ++i;
            }
        } else if (c == quote) {
            quoted = true;
        } else {
            // The run up to the next character that means something, in one append.
            qsizetype end = i + 1;
            while (end < size) {
                const QChar next = data[end];
                if (next == delimiter || next == u'\n' || next == u'\r' || next == quote) {
                    break;
                }
                ++end;
            }
            cell.append(data + i, end - i);
            i = end - 1;
        }
    }
    if (rowStarted || quoted || !cell.isEmpty() || !row.isEmpty()) {
        endRow();
    }
    if (progress) {
        progress(size, size);
    }
    return rows;
}

QString exportCSVText(const QList<Clip>& clips)
{
    QString text = csvHeader;
    for (const Clip& clip : clips) {
        text += u'\n';
        text += csvCell(clip.key);
        text += u',';
        text += csvCell(clip.text);
        text += u',';
        text += csvCell(clip.name);
        text += u',';
        text += csvCell(clip.allGroups().join(QStringLiteral("; ")));
        text += u',';
        text += csvCell(clip.files.join(QStringLiteral("; ")));
    }
    return text;
}

Result<QString> exportCSV(const QList<Clip>& clips, const QString& path)
{
    QSaveFile file(path);
    const QByteArray bytes = exportCSVText(clips).toUtf8();
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        return TavoError{QStringLiteral("TavoShare"), 0, QStringLiteral("Export failed: ") + file.errorString()};
    }
    return QStringLiteral("Exported %1 shortcuts to %2").arg(clips.size()).arg(QFileInfo(path).fileName());
}

PreparedCSVImport prepareCSVImport(const CSVRows& rows, bool downloadMediaURLs, const QStringList& defaultGroups,
                                   const QStringList& knownCollections, const QString& attachmentsDir,
                                   const CSVImportControl& control)
{
    PreparedCSVImport prepared;
    if (const std::optional<QString> why = makeMediaFolder(attachmentsDir)) {
        prepared.error = QStringLiteral("Could not create the media folder: ") + *why;
        return prepared;
    }
    const auto canceled = [&] { return control.canceled && control.canceled->load(); };
    QStringList known = knownCollections;
    const QStringList defaults = orderedDefaultGroups(defaultGroups, knownCollections);
    // The network access lives in this thread, and only while there is something to fetch.
    std::unique_ptr<QNetworkAccessManager> network;

    const int total = int(rows.size());
    for (int r = 0; r < total; ++r) {
        if (canceled()) {
            break;
        }
        if (control.progress) {
            control.progress(r, total);
        }
        const QStringList& row = rows[r];
        const auto cellAt = [&row](qsizetype i) { return i < row.size() ? row[i] : QString(); };
        const QString first = cellAt(0).trimmed();
        const QString lowered = first.toLower();
        if (first.isEmpty() || lowered == QLatin1StringView("shortcut") || lowered == QLatin1StringView("trigger")) {
            continue;
        }

        QStringList groups;
        for (const QString& part : cellAt(3).split(u';')) {
            const QString name = part.trimmed();
            if (name.isEmpty() || containsIgnoringCase(groups, name)) {
                continue;
            }
            const QString spelled = knownSpelling(name, known);
            if (!containsIgnoringCase(known, spelled)) {
                known.append(spelled); // later rows take this row's spelling
            }
            groups.append(spelled);
        }
        if (groups.isEmpty()) {
            groups = defaults.isEmpty() ? QStringList{knownSpelling(QStringLiteral("Imported"), known)} : defaults;
        }

        Clip clip;
        clip.key = collectionTrigger(first, groups.first());
        clip.text = cellAt(1);
        const QString name = cellAt(2).trimmed();
        clip.name = name.isEmpty() ? clip.key : name;
        clip.group = groups.first();
        if (groups.size() > 1) {
            clip.groups = groups.mid(1);
        }

        if (downloadMediaURLs) {
            for (const QUrl& url : mediaUrls(cellAt(4))) {
                if (canceled()) {
                    break;
                }
                if (!network) {
                    network = std::make_unique<QNetworkAccessManager>();
                }
                const DownloadRequest request = mediaDownloadRequest(url, attachmentsDir, control.limits);
                const DownloadResult result =
                    downloadNow(*network, request, control.downloadProgress, control.canceled);
                if (result.ok()) {
                    clip.files.append(result.path);
                    prepared.downloadedFiles.append(result.path);
                } else if (!result.canceled) {
                    ++prepared.failedDownloads;
                    prepared.failures.append(url.toDisplayString() + QStringLiteral(": ") + result.error);
                }
            }
        }
        prepared.clips.append(std::move(clip));
    }
    if (canceled()) {
        discardCSVImport(prepared);
        prepared = PreparedCSVImport();
        prepared.canceled = true;
        return prepared;
    }
    if (control.progress) {
        control.progress(total, total);
    }
    return prepared;
}

void applyCSVImport(DB& db, const PreparedCSVImport& import, QObject* context,
                    const std::function<void(const Result<QString>&)>& done)
{
    if (!import.error.isEmpty()) {
        done(TavoError{QStringLiteral("TavoShare"), 0, import.error});
        return;
    }
    QPointer<DB> store(&db);
    const QString folder = db.dir();
    // The downloads go when the import fails, even with nobody left to tell.
    db.updateClips([clips = import.clips](QList<Clip>& library) { library.append(clips); }, nullptr,
                   [import, store, folder, context = QPointer<QObject>(context), hasContext = context != nullptr,
                    done](bool saved) {
                       if (!saved) {
                           discardCSVImport(import);
                       }
                       if (hasContext && !context) {
                           return;
                       }
                       if (!saved) {
                           done(TavoError{QStringLiteral("TavoShare"), 0,
                                          QStringLiteral("Could not save the shortcuts in %1.").arg(folder)});
                           return;
                       }
                       if (store) {
                           QStringList collections = store->collections();
                           const qsizetype before = collections.size();
                           for (const Clip& clip : import.clips) {
                               for (const QString& group : clip.allGroups()) {
                                   if (!containsIgnoringCase(collections, group)) {
                                       collections.append(group);
                                   }
                               }
                           }
                           if (collections.size() != before) {
                               store->setCollections(std::move(collections));
                           }
                       }
                       QString report = QStringLiteral("Imported %1 shortcuts · %2 media downloaded")
                                            .arg(import.clips.size())
                                            .arg(import.downloadedFiles.size());
                       if (import.failedDownloads > 0) {
                           report += QStringLiteral(" · %1 download(s) failed").arg(import.failedDownloads);
                       }
                       done(report);
                   });
}

Result<QString> applyCSVImport(DB& db, const PreparedCSVImport& import)
{
    std::optional<Result<QString>> outcome;
    applyCSVImport(db, import, nullptr, [&outcome](const Result<QString>& status) { outcome = status; });
    db.waitForSaves();
    return outcome.value_or(Result<QString>(TavoError{QStringLiteral("TavoShare"), 0, QStringLiteral("Canceled.")}));
}

void discardCSVImport(const PreparedCSVImport& import)
{
    removeFiles(import.downloadedFiles);
}

Result<QString> importRowsAndDownload(DB& db, const CSVRows& rows, bool downloadMediaURLs,
                                      const QStringList& defaultGroups, const CSVImportControl& control)
{
    const PreparedCSVImport prepared =
        prepareCSVImport(rows, downloadMediaURLs, defaultGroups, db.collections(), db.attachmentsDir(), control);
    if (prepared.canceled) {
        return TavoError{QStringLiteral("TavoShare"), 0, QStringLiteral("Canceled.")};
    }
    return applyCSVImport(db, prepared);
}

} // namespace tavo
