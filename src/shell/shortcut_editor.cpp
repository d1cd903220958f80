#include "shell/shortcut_editor.h"

#include "shell/ui/inline_message.h"
#include "store/attachments.h"
#include "store/profile_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDragEnterEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QImage>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMimeData>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QUrl>

namespace tavo {

namespace {

constexpr int draftNameLength = 36;
const QString importedCollection = QStringLiteral("Imported");

} // namespace

QString draftKeyForName(const QString& name, const QList<Clip>& clips)
{
    static const QRegularExpression notAlphanumeric(QStringLiteral("[^\\p{L}\\p{N}]+"));
    QString stem = name.toLower().split(notAlphanumeric, Qt::SkipEmptyParts).join(QString());
    if (stem.isEmpty()) {
        stem = QStringLiteral("clip");
    }
    const auto taken = [&](const QString& key) {
        return std::any_of(clips.cbegin(), clips.cend(),
                           [&](const Clip& clip) { return clip.key.compare(key, Qt::CaseInsensitive) == 0; });
    };
    QString key = u'/' + stem;
    for (int counter = 2; taken(key); ++counter) {
        key = u'/' + stem + QString::number(counter);
    }
    return key;
}

std::optional<Clip> clipboardDraft(const QMimeData* data, const QList<Clip>& clips, const QString& attachmentsDir)
{
    if (!data) {
        return std::nullopt;
    }
    QStringList files;
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile()) {
            if (const AttachmentCopy copy = copyIntoAttachments(url.toLocalFile(), attachmentsDir); copy.ok()) {
                files << copy.path;
            }
        }
    }
    if (data->hasImage()) {
        const QImage image = qvariant_cast<QImage>(data->imageData());
        const QString path = QDir(attachmentsDir).filePath(newAttachmentName(QStringLiteral("clipboard-image.png")));
        if (!image.isNull() && QDir().mkpath(attachmentsDir) && image.save(path, "PNG")) {
            files << path;
        }
    }
    // Text that only names the files just taken (a file manager's copy) is no text of its own.
    const QString text = data->hasUrls() && !files.isEmpty() ? QString() : data->text().trimmed();
    if (text.isEmpty() && files.isEmpty()) {
        return std::nullopt;
    }

    Clip draft;
    if (!text.isEmpty()) {
        draft.name = text.section(u'\n', 0, 0).left(draftNameLength).trimmed();
    } else {
        draft.name = QFileInfo(files.first()).completeBaseName();
    }
    if (draft.name.isEmpty()) {
        draft.name = QStringLiteral("Clipboard item");
    }
    draft.key = draftKeyForName(draft.name, clips);
    draft.text = text;
    draft.files = files;
    return draft;
}

ShortcutEditor::ShortcutEditor(DB& db, const std::optional<Clip>& chosen, const QString& defaultGroup, QWidget* parent)
    : QDialog(parent)
    , m_db(db)
    , m_original(chosen.value_or(Clip()))
    , m_id(chosen ? chosen->id : QUuid::createUuid())
    , m_key(new QLineEdit(this))
    , m_name(new QLineEdit(this))
    , m_text(new QPlainTextEdit(this))
    , m_url(new QLineEdit(this))
    , m_group(new QComboBox(this))
    , m_groups(new QListWidget(this))
    , m_media(new QListWidget(this))
    , m_directMedia(new QCheckBox(QStringLiteral("Paste the media instead of the text"), this))
    , m_problem(new InlineMessage(this))
{
    const bool existing = chosen && std::any_of(db.clips().cbegin(), db.clips().cend(),
                                                [&](const Clip& clip) { return clip.id == chosen->id; });
    setWindowTitle(existing ? QStringLiteral("Edit shortcut") : QStringLiteral("New shortcut"));
    setAcceptDrops(true);
    m_key->setObjectName(QStringLiteral("key"));
    m_name->setObjectName(QStringLiteral("name"));
    m_text->setObjectName(QStringLiteral("text"));
    m_url->setObjectName(QStringLiteral("webURL"));
    m_group->setObjectName(QStringLiteral("group"));
    m_groups->setObjectName(QStringLiteral("groups"));
    m_media->setObjectName(QStringLiteral("media"));
    m_key->setPlaceholderText(QStringLiteral("\\thanks"));
    m_url->setPlaceholderText(QStringLiteral("https://"));
    m_text->setPlaceholderText(QStringLiteral("The text to paste. Live tokens such as {{date}} are filled in."));
    m_text->setTabChangesFocus(true); // Tab moves on through the form, as in every other field
    m_problem->setObjectName(QStringLiteral("problem"));
    // The lists have labels beside them; a screen reader is told them as names too.
    m_groups->setAccessibleName(QStringLiteral("Also in"));
    m_media->setAccessibleName(QStringLiteral("Media"));

    m_group->addItem(QString()); // none chosen: saved as "Imported"
    m_group->setItemData(0, QStringLiteral("No collection"), Qt::AccessibleTextRole);
    for (const QString& collection : db.collections()) {
        m_group->addItem(collection);
        auto* item = new QListWidgetItem(collection, m_groups);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(Qt::Unchecked);
    }
    m_groups->setMaximumHeight(110);
    m_media->setMaximumHeight(90);

    const QString group = chosen ? chosen->group : defaultGroup;
    if (!group.isEmpty() && m_group->findText(group, Qt::MatchFixedString) < 0) {
        m_group->addItem(group);
    }
    m_group->setCurrentIndex(qMax(0, m_group->findText(group, Qt::MatchFixedString)));
    if (chosen) {
        m_key->setText(displayTrigger(chosen->key));
        m_name->setText(chosen->name);
        m_text->setPlainText(chosen->text);
        m_url->setText(chosen->webURL.value_or(QString()));
        m_media->addItems(chosen->files);
        m_directMedia->setChecked(chosen->directMediaPaste.value_or(false));
        for (const QString& name : chosen->groups.value_or(QStringList())) {
            const QList<QListWidgetItem*> rows = m_groups->findItems(name, Qt::MatchFixedString);
            QListWidgetItem* item = rows.isEmpty() ? nullptr : rows.first();
            if (!item) {
                // A collection the library no longer lists stays with the shortcut unless unticked.
                item = new QListWidgetItem(name, m_groups);
                item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
            }
            item->setCheckState(Qt::Checked);
        }
    }

    auto* addMedia = new QPushButton(QStringLiteral("Add media…"), this);
    auto* removeMedia = new QPushButton(QStringLiteral("Remove"), this);
    connect(addMedia, &QPushButton::clicked, this,
            [this] { attachFiles(QFileDialog::getOpenFileNames(this, QStringLiteral("Add media"))); });
    connect(removeMedia, &QPushButton::clicked, this, [this] { qDeleteAll(m_media->selectedItems()); });
    auto* mediaButtons = new QHBoxLayout;
    mediaButtons->addWidget(addMedia);
    mediaButtons->addWidget(removeMedia);
    mediaButtons->addStretch();

    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Key"), m_key);
    form->addRow(QStringLiteral("Name"), m_name);
    form->addRow(QStringLiteral("Text"), m_text);
    form->addRow(QStringLiteral("Website"), m_url);
    form->addRow(QStringLiteral("Collection"), m_group);
    form->addRow(QStringLiteral("Also in"), m_groups);
    form->addRow(QStringLiteral("Media"), m_media);
    form->addRow(QString(), mediaButtons);
    form->addRow(QString(), m_directMedia);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &ShortcutEditor::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &ShortcutEditor::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(form);
    layout->addWidget(m_problem);
    layout->addWidget(buttons);
    resize(560, 560);
}

Clip ShortcutEditor::builtClip() const
{
    Clip clip = m_original;
    clip.id = m_id;
    clip.groups.reset();
    clip.files.clear();
    clip.webURL.reset();
    clip.directMediaPaste.reset();
    clip.group = m_group->currentText().trimmed().isEmpty() ? importedCollection : m_group->currentText().trimmed();
    QStringList further;
    for (int row = 0; row < m_groups->count(); ++row) {
        if (m_groups->item(row)->checkState() == Qt::Checked) {
            further << m_groups->item(row)->text();
        }
    }
    if (!further.isEmpty()) {
        clip.groups = further;
    }
    clip.key = collectionTrigger(m_key->text(), clip.group);
    const QString name = m_name->text().trimmed();
    clip.name = name.isEmpty() ? clip.key : name;
    clip.text = m_text->toPlainText();
    for (int row = 0; row < m_media->count(); ++row) {
        clip.files << m_media->item(row)->text();
    }
    if (!m_url->text().trimmed().isEmpty()) {
        clip.webURL = m_url->text().trimmed();
    }
    if (m_directMedia->isChecked() || m_original.directMediaPaste) {
        clip.directMediaPaste = m_directMedia->isChecked();
    }
    return clip;
}

void ShortcutEditor::attachFiles(const QStringList& paths)
{
    for (const QString& path : paths) {
        const AttachmentCopy copy = copyIntoAttachments(path, m_db.attachmentsDir());
        if (!copy.ok()) {
            m_problem->showMessage(
                QStringLiteral("Could not copy %1 into the profile.").arg(QFileInfo(path).fileName()),
                InlineMessage::Kind::Error);
            continue;
        }
        m_media->addItem(copy.path);
    }
}

void ShortcutEditor::accept()
{
    if (m_key->text().trimmed().isEmpty() || normalizedTrigger(m_key->text()) == QLatin1String("/")) {
        m_problem->showMessage(QStringLiteral("Type the key that will expand this shortcut."),
                               InlineMessage::Kind::Error);
        m_key->setFocus();
        return;
    }
    Clip clip = builtClip();
    QList<Clip> clips = m_db.clips();
    const auto existing =
        std::find_if(clips.begin(), clips.end(), [&](const Clip& candidate) { return candidate.id == clip.id; });
    if (existing != clips.end()) {
        // What the form does not show is taken from the shortcut as it is now, not as it was
        // when the editor opened: another window or tavoctl may have changed it meanwhile.
        const Clip shown = m_original;
        m_original = *existing;
        const Clip current = builtClip();
        m_original = shown;
        *existing = current;
    } else {
        clips.append(clip);
    }
    m_db.setClips(std::move(clips));
    m_db.save();
    QDialog::accept();
}

void ShortcutEditor::dragEnterEvent(QDragEnterEvent* event)
{
    if (event->mimeData()->hasUrls()) {
        event->acceptProposedAction();
    }
}

void ShortcutEditor::dropEvent(QDropEvent* event)
{
    QStringList paths;
    for (const QUrl& url : event->mimeData()->urls()) {
        if (url.isLocalFile()) {
            paths << url.toLocalFile();
        }
    }
    attachFiles(paths);
    event->acceptProposedAction();
}

} // namespace tavo
