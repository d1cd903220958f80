#include "picker/command_faces.h"

#include "builder/builder_prompt.h"

#include "ai/model_profile_store.h"
#include "ai/prompt_expansion.h"
#include "ai/text_client.h"
#include "engine/inline_commands.h"
#include "language/text_utils.h"
#include "shell/ui/design.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QComboBox>
#include <QEvent>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

namespace tavo {

namespace {

QLabel* headline(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setFont(design::sectionHeaderFont(parent->font()));
    return label;
}

QLabel* line(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}

QPushButton* button(const QString& text, QWidget* parent)
{
    auto* made = new QPushButton(text, parent);
    design::name(made, text);
    made->setFocusPolicy(Qt::NoFocus); // the panel gives the keyboard to its editors only
    return made;
}

// A rewrite or rephrase answer: the trimmed text replaces the editor's, unless the request failed
// or came back empty; `failed` words a failure, `ready` the success.
void takeRewrittenText(const Result<QString>& answer, QPlainTextEdit* editor, QLabel* status,
                       QString (*failed)(const QString&), const QString& ready)
{
    if (!answer.ok()) {
        status->setText(failed(answer.error().description));
        return;
    }
    const QString result = answer.value().trimmed();
    if (result.isEmpty()) {
        status->setText(failed(FaceText::rewriteEmpty));
        return;
    }
    editor->setPlainText(result);
    status->setText(ready);
}

QComboBox* toneMenu(const QString& name, const QString& current, QWidget* parent)
{
    auto* menu = new QComboBox(parent);
    menu->addItems(rewriteTones());
    menu->setCurrentText(current);
    menu->setFocusPolicy(Qt::NoFocus);
    design::name(menu, name);
    return menu;
}

QPlainTextEdit* textEditor(const QString& name, QWidget* parent)
{
    auto* field = new QPlainTextEdit(parent);
    field->setPlaceholderText(name);
    field->setFocusPolicy(Qt::NoFocus); // until the panel gives it the keyboard
    design::name(field, name);
    return field;
}

// A header with the face's title and a way out.
QHBoxLayout* header(const QString& title, QWidget* face, const std::function<void()>& close)
{
    auto* row = new QHBoxLayout;
    row->addWidget(headline(title, face), 1);
    auto* closeButton = new QPushButton(QStringLiteral("✕"), face);
    closeButton->setMaximumWidth(closeButton->fontMetrics().height() * 2);
    closeButton->setFocusPolicy(Qt::NoFocus);
    design::name(closeButton, QStringLiteral("Close this command"));
    QObject::connect(closeButton, &QPushButton::clicked, face, close);
    row->addWidget(closeButton);
    return row;
}

bool isClick(QEvent* event)
{
    return event->type() == QEvent::MouseButtonPress;
}

// Ctrl+Return in an editor that has the keyboard pastes, as a chat box sends: Return alone
// stays a line break there.
bool isPasteChord(QEvent* event)
{
    if (event->type() != QEvent::KeyPress) {
        return false;
    }
    const auto* key = static_cast<QKeyEvent*>(event);
    return (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) &&
           key->modifiers().testFlag(Qt::ControlModifier);
}

// The shortcuts and records a prompt or an image may name.
std::pair<QList<Clip>, QList<CollectionRecord>> visibleLibrary(const DB& db, const Defaults& defaults)
{
    // Hidden collections lend their shortcuts and records only when the picker shows them.
    const bool showHidden = defaults.flag(QStringLiteral("tavoPickerShowHiddenCollections"));
    QList<CollectionRecord> records = db.collectionRecords();
    if (!showHidden) {
        const QStringList& hidden = db.hiddenCollections();
        records.removeIf(
            [&](const CollectionRecord& record) { return hidden.contains(record.collection, Qt::CaseInsensitive); });
    }
    return {showHidden ? db.clips() : db.availableClips(), records};
}

} // namespace

std::optional<RewriteModel> currentRewriteKey(Defaults& defaults)
{
    const QList<CollectionAIModelProfile> profiles = AIModelProfileStore::load(defaults);
    if (profiles.isEmpty()) {
        return std::nullopt;
    }
    const CollectionAIModelProfile profile =
        AIModelProfileStore::selectedModel(profiles, AIModelProfileStore::selectedProfileID(defaults));
    const Result<std::optional<QString>> key = KeyStore::load(profile.keyAccount);
    if (!key.ok() || !key.value() || key.value()->isEmpty()) {
        return std::nullopt;
    }
    return RewriteModel{profile, *key.value()};
}

// ---------------------------------------------------------------------------------------------

RewriteFace::RewriteFace(Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_editor(textEditor(QStringLiteral("Clipboard text · editable"), this))
    , m_tone(toneMenu(QStringLiteral("Tone"), defaultRewriteTone, this))
    , m_rewrite(button(QStringLiteral("Rewrite with AI"), this))
    , m_status(line(QString(), this))
{
    setObjectName(QStringLiteral("rewriteFace"));
    m_editor->setObjectName(QStringLiteral("rewriteEditor"));
    m_editor->viewport()->installEventFilter(this);
    m_editor->installEventFilter(this);
    auto* paste = button(QStringLiteral("Paste"), this);
    paste->setToolTip(QStringLiteral("Paste into your app (Ctrl+Return)"));
    connect(m_rewrite, &QPushButton::clicked, this, &RewriteFace::rewriteClipboardText);
    connect(paste, &QPushButton::clicked, this, &RewriteFace::paste);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(header(QStringLiteral("Rewrite clipboard text"), this, [this] { emit closeRequested(); }));
    layout->addWidget(
        line(QStringLiteral("Edit the copied text, choose a tone, then paste it back into your app."), this));
    layout->addWidget(m_editor, 1);
    auto* actions = new QHBoxLayout;
    actions->addWidget(new QLabel(QStringLiteral("Tone"), this));
    actions->addWidget(m_tone);
    actions->addWidget(m_rewrite);
    actions->addStretch();
    actions->addWidget(paste);
    layout->addLayout(actions);
    layout->addWidget(m_status);
    layout->addWidget(
        line(QStringLiteral("Text remains on this computer unless you paste it into another app."), this));
}

void RewriteFace::enter(const QString& text, int removeCount)
{
    reset();
    m_editor->setPlainText(text);
    m_removeCount = removeCount;
}

void RewriteFace::reset()
{
    if (m_request) {
        m_request->cancel();
    }
    m_busy = false;
    m_rewrite->setEnabled(true);
    m_editor->clear();
    m_status->clear();
    m_removeCount = 0;
}

QString RewriteFace::text() const
{
    return m_editor->toPlainText();
}

QString RewriteFace::status() const
{
    return m_status->text();
}

void RewriteFace::rewriteClipboardText()
{
    const QString text = m_editor->toPlainText().trimmed();
    if (text.isEmpty() || m_busy) {
        return;
    }
    const std::optional<RewriteModel> model = currentRewriteKey(m_defaults);
    if (!model) {
        m_status->setText(FaceText::rewriteNoKey);
        return;
    }
    const QString tone = m_tone->currentText();
    m_busy = true;
    m_rewrite->setEnabled(false);
    m_status->setText(FaceText::rewriting(tone));
    m_request = SharedAIClient::generate(model->profile, model->key, pickerRewritePrompt(tone, text), {},
                                         rewriteMaxOutputTokens, this, [this, tone](const Result<QString>& answer) {
                                             m_busy = false;
                                             m_rewrite->setEnabled(true);
                                             takeRewrittenText(answer, m_editor, m_status, FaceText::rewriteFailed,
                                                               FaceText::rewriteReady(tone));
                                         });
}

void RewriteFace::paste()
{
    emit pasteRequested(m_editor->toPlainText(), m_removeCount);
}

bool RewriteFace::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_editor->viewport() && isClick(event)) {
        emit fieldWanted(m_editor);
    }
    if (watched == m_editor && isPasteChord(event)) {
        paste();
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

// ---------------------------------------------------------------------------------------------

PromptFace::PromptFace(Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_editor(textEditor(QStringLiteral("Prompt"), this))
    , m_tone(toneMenu(QStringLiteral("Quick tone"), defaultPromptTone, this))
    , m_rephrase(button(QStringLiteral("Rephrase with AI"), this))
    , m_status(line(QString(), this))
    , m_summary(line(QString(), this))
{
    setObjectName(QStringLiteral("promptFace"));
    m_editor->setObjectName(QStringLiteral("promptEditor"));
    m_editor->viewport()->installEventFilter(this);
    m_editor->installEventFilter(this);
    auto* expand = button(QStringLiteral("Expand shortcuts"), this);
    expand->setToolTip(QStringLiteral("Replace the shortcuts named in the prompt by what they hold (Ctrl+E)"));
    auto* copy = button(QStringLiteral("Copy text prompt"), this);
    auto* paste = button(QStringLiteral("Paste"), this);
    paste->setToolTip(QStringLiteral("Paste into your app (Ctrl+Return)"));
    auto* media = button(QStringLiteral("Copy all media"), this);
    connect(expand, &QPushButton::clicked, this, &PromptFace::expandedPromptSnapshot);
    connect(m_rephrase, &QPushButton::clicked, this, &PromptFace::rephrasePrompt);
    connect(copy, &QPushButton::clicked, this, &PromptFace::copyText);
    connect(paste, &QPushButton::clicked, this, &PromptFace::paste);
    connect(media, &QPushButton::clicked, this, &PromptFace::copyMedia);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(header(QStringLiteral("Prompt composer"), this, [this] { emit closeRequested(); }));
    layout->addWidget(
        line(QStringLiteral("Action, expanded shortcuts, variables, and reference media in one clear prompt."), this));
    layout->addWidget(m_summary);
    layout->addWidget(m_editor, 1);
    auto* tools = new QHBoxLayout;
    tools->addWidget(expand);
    tools->addWidget(new QLabel(QStringLiteral("Quick tone"), this));
    tools->addWidget(m_tone);
    tools->addWidget(m_rephrase);
    tools->addStretch();
    layout->addLayout(tools);
    layout->addWidget(m_status);
    auto* actions = new QHBoxLayout;
    actions->addWidget(copy);
    actions->addWidget(media);
    actions->addStretch();
    actions->addWidget(paste);
    layout->addLayout(actions);
    layout->addWidget(line(
        QStringLiteral("Copy keeps the text prompt. Paste sends attached media when available, otherwise the text."),
        this));
}

void PromptFace::enter(const QString& payload, int removeCount, const DB* db)
{
    reset();
    m_db = db;
    m_removeCount = removeCount;
    const PromptDraft draft = promptDraftFor(payload);
    m_status->setText(draft.status);
    m_summary->setText(draft.summary);
    if (payload.trimmed().isEmpty()) {
        return;
    }
    m_editor->setPlainText(draft.text);
    if (m_db) {
        // An app command after \p- drafts the prompt from the app's action and the values typed.
        const auto [clips, records] = visibleLibrary(*m_db, m_defaults);
        if (const std::optional<BuilderPromptDraft> app =
                builderPromptDraft(payload.trimmed(), clips, records, m_defaults, {})) {
            m_editor->setPlainText(app->text);
            addReferencePaths(app->referencePaths);
        }
    }
    expandedPromptSnapshot();
    m_editor->setPlainText(withReferenceNote(m_editor->toPlainText(), m_referencePaths.size()));
    m_status->setText(draft.status);
    m_summary->setText(promptSummaryFor(m_referencePaths.size()));
    m_autoRewritePending = promptAutoRewritePending(payload);
    if (m_autoRewritePending) {
        // Once the face is on screen: the user sees the draft while it is rephrased.
        QTimer::singleShot(0, this, [this] {
            if (m_autoRewritePending) {
                m_autoRewritePending = false;
                rephrasePrompt();
            }
        });
    }
}

void PromptFace::reset()
{
    if (m_request) {
        m_request->cancel();
    }
    m_busy = false;
    m_autoRewritePending = false;
    m_rephrase->setEnabled(true);
    m_editor->clear();
    m_status->clear();
    m_summary->clear();
    m_referencePaths.clear();
    m_removeCount = 0;
}

QString PromptFace::text() const
{
    return m_editor->toPlainText();
}

QString PromptFace::status() const
{
    return m_status->text();
}

QString PromptFace::summary() const
{
    return m_summary->text();
}

void PromptFace::addReferencePaths(const QStringList& paths)
{
    for (const QString& path : paths) {
        if (!m_referencePaths.contains(path)) {
            m_referencePaths << path;
        }
    }
}

void PromptFace::expandedPromptSnapshot()
{
    if (!m_db) {
        return;
    }
    const auto [clips, records] = visibleLibrary(*m_db, m_defaults);
    const PromptShortcutExpansion expansion = expandPromptShortcutMentions(m_editor->toPlainText(), clips, records);
    addReferencePaths(expansion.paths);
    if (expansion.labels.isEmpty()) {
        m_status->setText(FaceText::noMentions);
    } else {
        m_summary->setText(expansion.labels.join(QStringLiteral(", ")));
    }
    if (expansion.text != m_editor->toPlainText()) {
        m_editor->setPlainText(expansion.text);
    }
}

void PromptFace::rephrasePrompt()
{
    if (m_busy) {
        return; // one request at a time
    }
    expandedPromptSnapshot();
    const QString prompt = m_editor->toPlainText();
    const std::optional<RewriteModel> model = currentRewriteKey(m_defaults);
    if (!model) {
        m_status->setText(FaceText::rephraseNoKey);
        return;
    }
    if (prompt.trimmed().isEmpty()) {
        return;
    }
    const QString tone = m_tone->currentText();
    m_busy = true;
    m_rephrase->setEnabled(false);
    m_status->setText(FaceText::rephrasing(tone, model->profile.name));
    m_request = SharedAIClient::generate(model->profile, model->key, rephrasePromptRequest(tone, prompt), {},
                                         rewriteMaxOutputTokens, this, [this, tone](const Result<QString>& answer) {
                                             m_busy = false;
                                             m_rephrase->setEnabled(true);
                                             takeRewrittenText(answer, m_editor, m_status, FaceText::rephraseFailed,
                                                               FaceText::rephraseReady(tone));
                                         });
}

void PromptFace::paste()
{
    emit pasteRequested(m_editor->toPlainText(), m_removeCount, m_referencePaths);
}

void PromptFace::copyText()
{
    emit copyRequested(m_editor->toPlainText());
}

void PromptFace::copyMedia()
{
    emit mediaCopyRequested(m_referencePaths);
    m_status->setText(FaceText::copiedMedia(m_referencePaths.size()));
}

bool PromptFace::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_editor->viewport() && isClick(event)) {
        emit fieldWanted(m_editor);
    }
    if (watched == m_editor && isPasteChord(event)) {
        paste();
        return true;
    }
    if (watched == m_editor && event->type() == QEvent::KeyPress) {
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_E && key->modifiers() == Qt::ControlModifier) {
            expandedPromptSnapshot(); // the mentions typed so far, without leaving the keyboard
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

// ---------------------------------------------------------------------------------------------

ImageFace::ImageFace(Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_defaults(defaults)
    , m_prompt(textEditor(QStringLiteral("Image prompt"), this))
    , m_references(line(QString(), this))
{
    setObjectName(QStringLiteral("imageFace"));
    m_prompt->setObjectName(QStringLiteral("imagePrompt"));
    m_prompt->viewport()->installEventFilter(this);
    auto* generate = button(QStringLiteral("Generate"), this);
    connect(generate, &QPushButton::clicked, this, &ImageFace::generateRequested);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addLayout(header(QStringLiteral("Create an image"), this, [this] { emit closeRequested(); }));
    layout->addWidget(
        line(QStringLiteral("Describe it, add saved references, then generate and save a shortcut."), this));
    layout->addWidget(m_references);
    layout->addWidget(m_prompt, 1);
    auto* actions = new QHBoxLayout;
    actions->addStretch();
    actions->addWidget(generate);
    layout->addLayout(actions);
}

void ImageFace::enter(const QString& payload, const DB* db)
{
    reset();
    // The image app's own prompt shows as the hint until the user writes one.
    if (const std::optional<QString> preset = m_defaults.string(QStringLiteral("tavoBuilderPrompt.Image Creator"))) {
        m_prompt->setPlaceholderText(*preset);
    }
    if (!db || payload.trimmed().isEmpty()) {
        return;
    }
    const ImageExpression expression = resolveImageExpression(payload.trimmed(), visibleLibrary(*db, m_defaults).first);
    m_referencePaths = expression.imagePaths;
    m_prompt->setPlainText(expression.prompt);
    QStringList names;
    for (const QString& path : m_referencePaths) {
        names << QFileInfo(path).fileName();
    }
    m_references->setVisible(!names.isEmpty());
    m_references->setText(QStringLiteral("References: ") + names.join(QStringLiteral(", ")));
}

void ImageFace::reset()
{
    m_prompt->clear();
    m_prompt->setPlaceholderText(QStringLiteral("Image prompt"));
    m_references->clear();
    m_references->hide();
    m_referencePaths.clear();
}

void ImageFace::input(const QString& text)
{
    QString prompt = m_prompt->toPlainText();
    if (text == QLatin1String("__BACKSPACE__")) {
        prompt = withoutLastCharacter(prompt);
    } else if (text == QLatin1String("__NEWLINE__")) {
        prompt += u'\n';
    } else {
        prompt += text;
    }
    m_prompt->setPlainText(prompt);
    m_prompt->moveCursor(QTextCursor::End);
}

QString ImageFace::prompt() const
{
    return m_prompt->toPlainText();
}

bool ImageFace::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_prompt->viewport() && isClick(event)) {
        emit fieldWanted(m_prompt);
    }
    return QWidget::eventFilter(watched, event);
}

} // namespace tavo
