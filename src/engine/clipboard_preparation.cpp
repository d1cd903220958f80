#include "engine/clipboard_preparation.h"

#include "engine/rich_text.h"
#include "platform/net/downloader.h"
#include "platform/pasteboard.h"
#include "platform/zip/zip_writer.h"
#include "store/profile_store.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QFont>
#include <QGuiApplication>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QMimeDatabase>
#include <QNetworkAccessManager>
#include <QPainter>
#include <QPointer>
#include <QRegularExpression>
#include <QSaveFile>
#include <QSet>
#include <QTemporaryDir>
#include <QUrl>
#include <QUuid>

#include <algorithm>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcClipboard, "tavo.engine.clipboard")

const QStringList imageExtensions = {
    QStringLiteral("png"),  QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("gif"),
    QStringLiteral("tif"),  QStringLiteral("tiff"), QStringLiteral("heic"), QStringLiteral("heif"),
    QStringLiteral("webp"), QStringLiteral("bmp"),  QStringLiteral("ico"),
};

constexpr qsizetype maxBatchMedia = 10;

const QString tabularMimeType = QStringLiteral("text/tab-separated-values");
const QString rtfMimeType = QStringLiteral("text/rtf");
const QString gnomeFilesMimeType = QStringLiteral("x-special/gnome-copied-files");

const QString mediaNotice = QStringLiteral("Media copied to clipboard · choose Paste in the target app");
const QString portraitNotice =
    QStringLiteral("Could not download the default portrait. Check your internet connection and try again.");

// Contact sheet geometry, in pixels of the sheet.
constexpr int sheetColumns = 3;
constexpr int cellWidth = 340;
constexpr int cellHeight = 280;
constexpr int boxWidth = 300;
constexpr int boxHeight = 198;
constexpr int boxLeft = 20;
constexpr int boxAboveBottom = 48;
constexpr int labelLeft = 16;
constexpr int labelAboveBottom = 14;
constexpr int labelPixelSize = 12;
const QColor labelColor(0x55, 0x55, 0x55);

constexpr int downloadDeadlineMs = 20'000;
constexpr qint64 maxDownloadBytes = 32 * 1024 * 1024;

std::optional<std::pair<QString, QByteArray>> imageData(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return std::nullopt;
    }
    const QMimeType type = QMimeDatabase().mimeTypeForFile(path, QMimeDatabase::MatchExtension);
    if (!type.isValid() || !type.name().startsWith(QLatin1StringView("image/"))) {
        return std::nullopt;
    }
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        return std::nullopt;
    }
    return std::pair(type.name(), std::move(bytes));
}

void addFileUrls(QMimeData& data, const QList<QUrl>& urls)
{
    data.setUrls(urls);
    // File managers paste files from their own list, which also says copy rather than cut.
    QByteArray copied = "copy";
    for (const QUrl& url : urls) {
        copied += '\n' + url.toEncoded();
    }
    data.setData(gnomeFilesMimeType, copied);
}

QString flattenedBatchText(QString text)
{
    text.replace(QStringLiteral("\r\n"), QStringLiteral(" "));
    text.replace(u'\n', u' ');
    text.replace(u'\r', u' ');
    text.replace(u'\t', u' ');
    return text.trimmed();
}

QString batchName()
{
    return QStringLiteral("Tavo-Batch-") + uuidText(QUuid::createUuid());
}

std::optional<QString> writeContactSheet(const QStringList& paths, const QString& target)
{
    const int rows = int((paths.size() + sheetColumns - 1) / sheetColumns);
    QImage sheet(sheetColumns * cellWidth, rows * cellHeight, QImage::Format_RGB32);
    sheet.fill(Qt::white);
    {
        QPainter painter(&sheet);
        painter.setRenderHint(QPainter::SmoothPixmapTransform);
        painter.setRenderHint(QPainter::TextAntialiasing);
        // Text needs the font database of a GUI application; without one the sheet has no labels.
        const bool canDrawText = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
        if (canDrawText) {
            QFont font(systemFontFamily());
            font.setPixelSize(labelPixelSize);
            painter.setFont(font);
            painter.setPen(labelColor);
        }
        for (qsizetype i = 0; i < paths.size(); ++i) {
            QImageReader reader(paths[i]);
            reader.setAutoTransform(true);
            const QImage image = reader.read();
            if (image.isNull() || image.width() <= 0 || image.height() <= 0) {
                continue;
            }
            const int cellLeft = int(i % sheetColumns) * cellWidth;
            const int cellBottom = int(i / sheetColumns + 1) * cellHeight;
            const double scale = std::min(double(boxWidth) / image.width(), double(boxHeight) / image.height());
            const QSizeF drawn(image.width() * scale, image.height() * scale);
            const QPointF boxTopLeft(cellLeft + boxLeft, cellBottom - boxAboveBottom - boxHeight);
            const QRectF placed(boxTopLeft.x() + (boxWidth - drawn.width()) / 2,
                                boxTopLeft.y() + (boxHeight - drawn.height()) / 2, drawn.width(), drawn.height());
            painter.drawImage(placed, image);
            if (canDrawText) {
                const QRectF labelRect(cellLeft + labelLeft, cellBottom - cellHeight, cellWidth - 2 * labelLeft,
                                       cellHeight - labelAboveBottom);
                const QString label = painter.fontMetrics().elidedText(QFileInfo(paths[i]).completeBaseName(),
                                                                       Qt::ElideMiddle, int(labelRect.width()));
                painter.drawText(labelRect, Qt::AlignLeft | Qt::AlignBottom | Qt::TextSingleLine, label);
            }
        }
    }
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly)) {
        qCWarning(lcClipboard) << "cannot write the contact sheet:" << file.errorString();
        return std::nullopt;
    }
    QImageWriter writer(&file, "png");
    if (!writer.write(sheet) || !file.commit()) {
        qCWarning(lcClipboard) << "cannot write the contact sheet:" << writer.errorString();
        return std::nullopt;
    }
    return target;
}

// Two files of the same name from different folders both go in, the second as "name 2.ext".
QString uniqueEntryName(const QString& path, QSet<QString>& used)
{
    const QFileInfo info(path);
    QString name = info.fileName();
    for (int n = 2; used.contains(name); ++n) {
        name = info.completeBaseName() + u' ' + QString::number(n) +
               (info.suffix().isEmpty() ? QString() : u'.' + info.suffix());
    }
    used.insert(name);
    return name;
}

// A zip whose entries sit under one top folder, so unpacking it makes one folder and not a
// scattering of files. The writer renames it into place only when complete, so a failed run
// leaves no half archive among the attachments.
std::optional<QString> writeArchive(const QStringList& paths, const QString& topFolder, const QString& target)
{
    ZipWriter writer(target);
    std::optional<TavoError> error = writer.addFolder(topFolder);
    QSet<QString> used;
    for (qsizetype i = 0; !error && i < paths.size(); ++i) {
        error = writer.addFile(paths[i], topFolder + u'/' + uniqueEntryName(paths[i], used));
    }
    if (!error) {
        error = writer.commit();
    }
    if (error) {
        qCWarning(lcClipboard) << "cannot write the batch archive:" << error->description;
        return std::nullopt;
    }
    return target;
}

QString cleanedFileName(const QString& title)
{
    static const QRegularExpression unsafe(QStringLiteral("[^a-z0-9_-]+"));
    return title.toLower().replace(unsafe, QStringLiteral("-"));
}

QString userAgent()
{
    const QString version = QCoreApplication::applicationVersion();
    return QStringLiteral("Tavo/") + (version.isEmpty() ? QStringLiteral("0.1") : version) +
           QStringLiteral(" (text expansion for the Linux desktop)");
}

struct Fetched
{
    QByteArray body;
    QString contentType;
};

// One GET with a deadline for the whole request, read back whole; a redirect counts as a failure.
// It goes through the one downloader into a private folder that goes with it.
void fetch(QNetworkAccessManager& network, const QUrl& url, std::function<void(std::optional<Fetched>)> then)
{
    auto folder = std::make_shared<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/tavo-fetch-XXXXXX"));
    if (!folder->isValid()) {
        QMetaObject::invokeMethod(
            &network, [then = std::move(then)] { then(std::nullopt); }, Qt::QueuedConnection);
        return;
    }
    DownloadRequest request;
    request.url = url;
    request.folder = folder->path();
    request.fileName = [](const QString&) { return QStringLiteral("body"); };
    request.userAgent = userAgent().toUtf8();
    request.limits.maxBytes = maxDownloadBytes;
    request.limits.idleTimeoutMs = downloadDeadlineMs;
    request.limits.totalTimeoutMs = downloadDeadlineMs;
    request.limits.maxRedirects = 0;
    auto* download = new Download(network, std::move(request), &network);
    QObject::connect(
        download, &Download::finished, download, [download, folder, path = url.path(), then = std::move(then)] {
            download->deleteLater();
            const DownloadResult& result = download->result();
            QFile body(result.path);
            if (!result.ok() || result.status != 200 || !body.open(QIODevice::ReadOnly)) {
                qCWarning(lcClipboard) << "download of" << path << "failed:" << result.status << result.error;
                then(std::nullopt);
                return;
            }
            then(Fetched{body.readAll(), result.contentType});
        });
}

std::optional<QUrl> portraitUrl(const QByteArray& summary, const QUrl& summaryUrl)
{
    const QJsonObject object = QJsonDocument::fromJson(summary).object();
    QString source =
        object.value(QLatin1StringView("thumbnail")).toObject().value(QLatin1StringView("source")).toString();
    if (source.isEmpty()) {
        source =
            object.value(QLatin1StringView("originalimage")).toObject().value(QLatin1StringView("source")).toString();
    }
    if (source.isEmpty()) {
        return std::nullopt;
    }
    const QUrl url = summaryUrl.resolved(QUrl(source));
    const QString scheme = url.scheme().toLower();
    if (!url.isValid() || (scheme != QLatin1StringView("http") && scheme != QLatin1StringView("https"))) {
        return std::nullopt;
    }
    return url;
}

// The extension the portrait is saved with: the address's own when it names an image, else the
// one that goes with the reply's type.
QString portraitExtension(const QUrl& url, const QString& contentType)
{
    const QString fromUrl = QFileInfo(url.path()).suffix().toLower();
    if (imageExtensions.contains(fromUrl)) {
        return fromUrl;
    }
    const QString fromType = QMimeDatabase().mimeTypeForName(contentType).preferredSuffix().toLower();
    return fromType.isEmpty() ? QStringLiteral("jpg") : fromType;
}

void finishLater(QObject* context, std::function<void(bool, const QString&)> done, bool ok, const QString& notice)
{
    QMetaObject::invokeMethod(
        context, [done = std::move(done), ok, notice] { done(ok, notice); }, Qt::QueuedConnection);
}

} // namespace

bool isImageExtension(const QString& path)
{
    return imageExtensions.contains(QFileInfo(path).suffix().toLower());
}

std::unique_ptr<QMimeData> clipboardContent(const ClipboardRequest& request, const QString& clipboardValue,
                                            const LiveTokenSources& sources)
{
    auto data = std::make_unique<QMimeData>();
    if (request.includeText) {
        const QString text =
            request.textOverride ? *request.textOverride : expandTokens(request.clip.text, clipboardValue, sources);
        data->setText(text);
        if (!request.style.isEmpty()) {
            const double size = request.style.size.value_or(systemFontPointSize());
            data->setHtml(styledHtml(text, request.style, size));
            data->setData(rtfMimeType, rtfFromStyledText(styledRuns(text, request.style, systemFontFamily(), size)));
        } else if (request.tabularRows) {
            data->setData(tabularMimeType, text.toUtf8());
            data->setHtml(htmlTable(*request.tabularRows));
        }
    }
    if (request.includeMedia) {
        // One QMimeData holds one value per type: the first image that can be read goes as image
        // data, every other file (further images too) as a file in the URL list.
        bool haveImage = false;
        QList<QUrl> urls;
        for (const QString& path : request.clip.files) {
            if (!request.mediaAsFiles && !haveImage && isImageExtension(path)) {
                if (const auto image = imageData(path)) {
                    data->setData(image->first, image->second);
                    haveImage = true;
                    continue;
                }
            }
            urls.append(QUrl::fromLocalFile(path));
        }
        if (!urls.isEmpty()) {
            addFileUrls(*data, urls);
        }
    }
    return data;
}

QString prepareClipboard(Pasteboard& pasteboard, const ClipboardRequest& request, const LiveTokenSources& sources)
{
    // What the clipboard held before is needed only for {{clipboard}}. Reading it asks the owning
    // application over the X server, which would delay every paste; so it is read only then, but
    // still before the clipboard is replaced.
    const bool wantsClipboard = request.includeText && !request.textOverride &&
                                request.clip.text.contains(QLatin1String("{{clipboard}}"), Qt::CaseInsensitive);
    const QString clipboardValue = wantsClipboard ? pasteboard.string() : QString();
    pasteboard.write(clipboardContent(request, clipboardValue, sources));
    return request.includeMedia ? mediaNotice : displayTrigger(request.clip.key) + QStringLiteral(" copied");
}

QString prepareBatchClipboard(Pasteboard& pasteboard, const QList<Clip>& clips, const QString& separator,
                              const QString& attachmentsDir, const LiveTokenSources& sources)
{
    LiveTokenSources batchSources = sources;
    if (!batchSources.pasteboard) {
        batchSources.pasteboard = &pasteboard;
    }
    QStringList results;
    QStringList files;
    for (const Clip& clip : clips) {
        const QString text = flattenedBatchText(promptExpandTokens(clip.text, batchSources));
        if (!text.isEmpty()) {
            results.append(text);
        }
        for (const QString& file : clip.files) {
            if (files.size() < maxBatchMedia) {
                files.append(file);
            }
        }
    }
    const QString joined = results.join(separator);
    const QStringList media = aggregateBatchMedia(files, attachmentsDir);

    ClipboardRequest request;
    request.clip.key = QStringLiteral("!batch");
    request.clip.name = QStringLiteral("Batch expansion");
    request.clip.text.clear();
    request.clip.group = QStringLiteral("Batch");
    request.clip.files = media;
    request.clip.directMediaPaste = !media.isEmpty();
    request.includeText = !joined.isEmpty();
    request.includeMedia = !media.isEmpty();
    request.textOverride = joined;
    if (separator.contains(u'\n')) {
        request.tabularRows = results;
    }
    prepareClipboard(pasteboard, request, batchSources);

    const QString layout =
        separator == QLatin1StringView(" ") ? QStringLiteral("with spaces") : QStringLiteral("on separate lines");
    return QStringLiteral("Pasted %1 text shortcuts %2 and %3 media item(s)")
        .arg(QString::number(clips.size()), layout, QString::number(media.size()));
}

QStringList aggregateBatchMedia(const QStringList& paths, const QString& attachmentsDir)
{
    QStringList existing;
    for (const QString& path : paths) {
        if (existing.size() == maxBatchMedia) {
            break;
        }
        if (QFileInfo(path).isFile()) {
            existing.append(path);
        }
    }
    if (existing.size() <= 1) {
        return existing;
    }
    if (!QDir().mkpath(attachmentsDir)) {
        qCWarning(lcClipboard) << "cannot create the attachments folder";
        return existing;
    }
    const QString name = batchName();
    const bool allImages = std::all_of(existing.cbegin(), existing.cend(), isImageExtension);
    const std::optional<QString> aggregated =
        allImages ? writeContactSheet(existing, attachmentsDir + u'/' + name + QStringLiteral(".png"))
                  : writeArchive(existing, name, attachmentsDir + u'/' + name + QStringLiteral(".zip"));
    return aggregated ? QStringList{*aggregated} : existing;
}

QString wikipediaBaseUrl()
{
    const QString configured = qEnvironmentVariable("TAVO_WIKIPEDIA_URL").trimmed();
    return configured.isEmpty() ? QStringLiteral("https://en.wikipedia.org") : configured;
}

void downloadDefaultMedia(DB& db, const Clip& clip, QNetworkAccessManager& network,
                          std::function<void(bool ok, const QString& notice)> done)
{
    const QString article = clip.defaultMediaArticle.value_or(QString()).trimmed();
    if (article.isEmpty()) {
        finishLater(&network, std::move(done), false, portraitNotice);
        return;
    }
    QString title = article;
    title.replace(u' ', u'_');
    QString base = wikipediaBaseUrl();
    while (base.endsWith(u'/')) {
        base.chop(1);
    }
    const QUrl summaryUrl(base + QStringLiteral("/api/rest_v1/page/summary/") +
                          QString::fromLatin1(QUrl::toPercentEncoding(title)));

    QPointer<DB> store(&db);
    const QUuid clipId = clip.id;
    QNetworkAccessManager* manager = &network;
    fetch(network, summaryUrl, [=](std::optional<Fetched> summary) {
        const std::optional<QUrl> imageUrl = summary ? portraitUrl(summary->body, summaryUrl) : std::nullopt;
        if (!imageUrl) {
            done(false, portraitNotice);
            return;
        }
        fetch(*manager, *imageUrl, [=](std::optional<Fetched> image) {
            if (!image || image->body.isEmpty() ||
                (!image->contentType.isEmpty() && !image->contentType.startsWith(QLatin1StringView("image/")))) {
                done(false, portraitNotice);
                return;
            }
            if (!store) {
                done(false, QString());
                return;
            }
            const QString folder = store->attachmentsDir();
            const QString path =
                folder + u'/' + cleanedFileName(title) + u'.' + portraitExtension(*imageUrl, image->contentType);
            QSaveFile file(path);
            if (!QDir().mkpath(folder) || !file.open(QIODevice::WriteOnly) || file.write(image->body) < 0 ||
                !file.commit()) {
                qCWarning(lcClipboard) << "cannot save the default portrait:" << file.errorString();
                done(false, portraitNotice);
                return;
            }
            QList<Clip> clips = store->clips();
            const auto found =
                std::find_if(clips.begin(), clips.end(), [&](const Clip& candidate) { return candidate.id == clipId; });
            if (found == clips.end()) {
                // Deleted while the portrait was on its way: nothing to tell the user.
                done(false, QString());
                return;
            }
            found->files = QStringList{path};
            store->setClips(std::move(clips));
            store->save();
            done(true, QString());
        });
    });
}

} // namespace tavo
