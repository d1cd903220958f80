#include "shell/shortcut_table_model.h"

#include "shell/ui/design.h"

#include <QFileInfo>
#include <QMimeDatabase>
#include <QTextDocument>

namespace tavo {

namespace {

// A row shows one line, so only the start of a long text is ever read; the tooltip shows more,
// but a tooltip taller than the screen helps nobody.
constexpr qsizetype previewSource = 400;
constexpr qsizetype tooltipLength = 2000;

QString wholeText(const Clip& clip)
{
    if (!clip.text.isEmpty()) {
        return clip.text;
    }
    if (clip.webURL) {
        return *clip.webURL;
    }
    QStringList names;
    for (const QString& file : clip.files) {
        names << QFileInfo(file).fileName();
    }
    return names.join(QLatin1Char('\n'));
}

// Plain text as a tooltip that wraps: Qt only wraps a tooltip that is rich text.
QString wrappedTooltip(const QString& text)
{
    if (text.isEmpty()) {
        return {};
    }
    QString shown = text.left(tooltipLength);
    if (shown.size() < text.size()) {
        shown += QStringLiteral("…");
    }
    return Qt::convertFromPlainText(shown, Qt::WhiteSpaceNormal);
}

} // namespace

ShortcutTableModel::ShortcutTableModel(QObject* parent)
    : QAbstractTableModel(parent)
{
}

QString ShortcutTableModel::collectionsText(const Clip& clip)
{
    const QStringList groups = clip.allGroups();
    if (groups.size() <= 1) {
        return groups.value(0);
    }
    return QStringLiteral("%1 +%2").arg(groups.first()).arg(groups.size() - 1);
}

QString ShortcutTableModel::previewText(const Clip& clip)
{
    if (clip.webURL && clip.text.trimmed().isEmpty()) {
        return *clip.webURL;
    }
    QString text = clip.text.left(previewSource).simplified();
    if (text.isEmpty() && !clip.files.isEmpty()) {
        text = clip.files.size() == 1 ? QStringLiteral("1 media file")
                                      : QStringLiteral("%1 media files").arg(clip.files.size());
    }
    return text;
}

QString ShortcutTableModel::accessibleText(const Clip& clip)
{
    return QStringList{displayTrigger(clip.key), clip.name, previewText(clip)}.join(QStringLiteral(", "));
}

QString ShortcutTableModel::iconName(const Clip& clip)
{
    if (clip.webURL) {
        return QStringLiteral("applications-internet");
    }
    if (!clip.files.isEmpty()) {
        static const QMimeDatabase mimes;
        const QString generic =
            mimes.mimeTypeForFile(clip.files.first(), QMimeDatabase::MatchExtension).genericIconName();
        // Sounds and films have their own icons; anything else attached reads as a picture.
        if (generic == QLatin1String("audio-x-generic") || generic == QLatin1String("video-x-generic")) {
            return generic;
        }
        return QStringLiteral("image-x-generic");
    }
    if (clip.appPath || clip.appBundleIdentifier) {
        return QStringLiteral("application-x-executable");
    }
    return {};
}

void ShortcutTableModel::setClips(QList<Clip> clips)
{
    beginResetModel();
    m_clips = std::move(clips);
    m_rows.clear();
    m_rows.reserve(m_clips.size());
    for (const Clip& clip : std::as_const(m_clips)) {
        m_rows.append(Row{displayTrigger(clip.key), collectionsText(clip), clip.allGroups().join(QStringLiteral(", ")),
                          previewText(clip), wrappedTooltip(wholeText(clip)), accessibleText(clip), iconName(clip)});
    }
    endResetModel();
}

void ShortcutTableModel::setKeyFont(const QFont& font)
{
    m_keyFont = font;
    if (!m_rows.isEmpty()) {
        emit dataChanged(index(0, KeyColumn), index(int(m_rows.size()) - 1, KeyColumn), {Qt::FontRole});
    }
}

int ShortcutTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(m_rows.size());
}

int ShortcutTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant ShortcutTableModel::data(const QModelIndex& index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid)) {
        return {};
    }
    const Row& row = m_rows.at(index.row());
    const Clip& clip = m_clips.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        switch (index.column()) {
        case KeyColumn:
            return row.key;
        case NameColumn:
            return clip.name;
        case CollectionColumn:
            return row.collections;
        case TextColumn:
            return row.preview;
        }
        break;
    case Qt::ToolTipRole:
        // The whole of what the cell shows cut short; key and name are never cut.
        switch (index.column()) {
        case CollectionColumn:
            return row.allCollections;
        case TextColumn:
            return row.fullText;
        default:
            return data(index, Qt::DisplayRole);
        }
    case Qt::AccessibleTextRole:
        return row.accessible;
    case Qt::FontRole:
        if (index.column() == KeyColumn) {
            return m_keyFont;
        }
        break;
    case Qt::DecorationRole:
        if (index.column() == TextColumn && !row.iconName.isEmpty()) {
            return design::icon(row.iconName);
        }
        break;
    case IconNameRole:
        return row.iconName;
    }
    return {};
}

QVariant ShortcutTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || (role != Qt::DisplayRole && role != Qt::AccessibleTextRole)) {
        return QAbstractTableModel::headerData(section, orientation, role);
    }
    switch (section) {
    case KeyColumn:
        return QStringLiteral("Key");
    case NameColumn:
        return QStringLiteral("Name");
    case CollectionColumn:
        return QStringLiteral("Collection");
    case TextColumn:
        return QStringLiteral("Expands to");
    }
    return {};
}

} // namespace tavo
