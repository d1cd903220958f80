#include "exchange/shared_shortcut.h"

#include "language/json_stream.h"
#include "language/shortcut_record.h"

namespace tavo {

namespace {

// A package's shortcut is a clip without identity or math flag, its media standing in the files;
// going through a clip lets the one shortcut codec read and write both forms.
Clip asClip(const TavoSharedShortcut& shortcut)
{
    return Clip{.id = QUuid(),
                .key = shortcut.key,
                .name = shortcut.name,
                .text = shortcut.text,
                .group = shortcut.group,
                .files = shortcut.media,
                .directMediaPaste = shortcut.directMediaPaste,
                .groups = shortcut.groups,
                .appBundleIdentifier = shortcut.appBundleIdentifier,
                .appPath = shortcut.appPath,
                .isMathResult = std::nullopt,
                .webURL = shortcut.webURL,
                .defaultMediaArticle = shortcut.defaultMediaArticle};
}

TavoSharedShortcut asSharedShortcut(Clip&& clip)
{
    return TavoSharedShortcut{.key = std::move(clip.key),
                              .name = std::move(clip.name),
                              .text = std::move(clip.text),
                              .group = std::move(clip.group),
                              .media = std::move(clip.files),
                              .directMediaPaste = clip.directMediaPaste,
                              .groups = std::move(clip.groups),
                              .appBundleIdentifier = std::move(clip.appBundleIdentifier),
                              .appPath = std::move(clip.appPath),
                              .webURL = std::move(clip.webURL),
                              .defaultMediaArticle = std::move(clip.defaultMediaArticle)};
}

} // namespace

void writeSharedShortcut(JsonWriter& writer, const TavoSharedShortcut& shortcut)
{
    writeClip(writer, asClip(shortcut), ShortcutForm::Package);
}

std::optional<TavoSharedShortcut> readSharedShortcut(JsonReader& reader)
{
    std::optional<Clip> clip = readClip(reader, ShortcutForm::Package);
    if (!clip) {
        return std::nullopt;
    }
    return asSharedShortcut(std::move(*clip));
}

QByteArray TavoSharedShortcut::toJsonBytes() const
{
    JsonWriter writer;
    writeSharedShortcut(writer, *this);
    return writer.take();
}

std::optional<TavoSharedShortcut> TavoSharedShortcut::fromJsonBytes(QByteArrayView json)
{
    JsonReader reader(json);
    std::optional<TavoSharedShortcut> shortcut = readSharedShortcut(reader);
    return shortcut && reader.atEnd() ? shortcut : std::nullopt;
}

QByteArray TavoSharedShortcutBundle::toJsonBytes() const
{
    JsonWriter writer(qsizetype(shortcuts.size()) * 256);
    writer.beginObject();
    writer.key(QLatin1StringView("title"));
    writer.value(title);
    writer.key(QLatin1StringView("shortcuts"));
    writer.beginArray();
    for (const TavoSharedShortcut& shortcut : shortcuts) {
        writeSharedShortcut(writer, shortcut);
    }
    writer.endArray();
    if (priceINR) {
        writer.key(QLatin1StringView("priceINR"));
        writer.value(*priceINR);
    }
    writer.endObject();
    return writer.take();
}

std::optional<TavoSharedShortcutBundle> TavoSharedShortcutBundle::fromJsonBytes(QByteArrayView json)
{
    JsonReader reader(json);
    if (!reader.beginObject()) {
        return std::nullopt;
    }
    TavoSharedShortcutBundle bundle;
    bool hasTitle = false;
    bool hasShortcuts = false;
    while (const std::optional<QByteArrayView> key = reader.nextKey()) {
        bool ok = true;
        if (*key == "title") {
            std::optional<QString> title = hasTitle ? std::nullopt : reader.readString();
            ok = title.has_value();
            if (ok) {
                bundle.title = std::move(*title);
                hasTitle = true;
            }
        } else if (*key == "shortcuts") {
            // A second list would add to the first rather than stand for it.
            ok = !hasShortcuts && reader.beginArray();
            while (ok && reader.nextElement()) {
                std::optional<TavoSharedShortcut> shortcut = readSharedShortcut(reader);
                ok = shortcut.has_value();
                if (ok) {
                    bundle.shortcuts.append(std::move(*shortcut));
                }
            }
            ok = ok && !reader.failed();
            hasShortcuts = ok;
        } else if (*key == "priceINR") {
            ok = readOptional(reader, bundle.priceINR, [&] { return reader.readNumber(); });
        } else {
            ok = reader.skipValue();
        }
        if (!ok) {
            return std::nullopt;
        }
    }
    if (reader.failed() || !hasTitle || !hasShortcuts || !reader.atEnd()) {
        return std::nullopt;
    }
    return bundle;
}

} // namespace tavo
