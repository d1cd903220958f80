#include "shell/app_builder_editor.h"

#include "ai/model_profile_store.h"
#include "builder/template_render.h"
#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "shell/ui/inline_message.h"
#include "store/defaults.h"
#include "store/key_store.h"
#include "store/profile_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHideEvent>
#include <QInputDialog>
#include <QJsonArray>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>
#include <QTextEdit>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavo {

namespace {

using design::quietLabel;

// Long enough to cover the gap between keystrokes; leaving the editor writes at once anyway.
constexpr int typingPauseMs = 400;

const QStringList variableTypeNames = {QStringLiteral("Text"), QStringLiteral("Number"), QStringLiteral("Date")};
const QStringList aspectRatios = {QStringLiteral("16:9"), QStringLiteral("1:1"), QStringLiteral("9:16"),
                                  QStringLiteral("4:3"), QStringLiteral("3:4")};
const QStringList resolutions = {QStringLiteral("1K"), QStringLiteral("2K"), QStringLiteral("4K")};

RunStyle styleOf(const QTextCharFormat& format)
{
    RunStyle style;
    style.bold = format.hasProperty(QTextFormat::FontWeight) && format.fontWeight() >= QFont::DemiBold;
    style.italic = format.fontItalic();
    style.underline = format.fontUnderline();
    style.strikethrough = format.fontStrikeOut();
    if (format.hasProperty(QTextFormat::FontPointSize)) {
        style.pointSize = format.fontPointSize();
    }
    if (format.hasProperty(QTextFormat::ForegroundBrush) && format.foreground().style() != Qt::NoBrush) {
        const QColor color = format.foreground().color();
        style.color = TextColor{color.red(), color.green(), color.blue()};
    }
    if (format.hasProperty(QTextFormat::FontFamilies)) {
        const QStringList families = format.fontFamilies().toStringList();
        style.family = families.value(0);
    }
    return style;
}

QTextCharFormat formatOf(const RunStyle& style)
{
    QTextCharFormat format;
    format.setFontWeight(style.bold ? QFont::Bold : QFont::Normal);
    format.setFontItalic(style.italic);
    format.setFontUnderline(style.underline);
    format.setFontStrikeOut(style.strikethrough);
    if (style.pointSize) {
        format.setFontPointSize(*style.pointSize);
    }
    if (style.color) {
        format.setForeground(QColor(style.color->red, style.color->green, style.color->blue));
    }
    if (!style.family.isEmpty()) {
        format.setFontFamilies({style.family});
    }
    return format;
}

// Whether every character of the selection has the attribute.
bool wholeSelection(const QTextCursor& cursor, const std::function<bool(const QTextCharFormat&)>& has)
{
    const int start = cursor.selectionStart();
    const int end = cursor.selectionEnd();
    const QTextDocument* document = cursor.document();
    for (QTextBlock block = document->findBlock(start); block.isValid() && block.position() < end;
         block = block.next()) {
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            const int from = fragment.position();
            const int to = from + fragment.length();
            if (to <= start || from >= end) {
                continue;
            }
            if (!has(fragment.charFormat())) {
                return false;
            }
        }
    }
    return true;
}

void toggleAttribute(QTextEdit* view, const std::function<bool(const QTextCharFormat&)>& has,
                     const std::function<void(QTextCharFormat&, bool)>& set)
{
    if (!view) {
        return;
    }
    const QTextCursor cursor = view->textCursor();
    const bool on = cursor.hasSelection() ? wholeSelection(cursor, has) : has(view->currentCharFormat());
    QTextCharFormat change;
    set(change, !on);
    view->mergeCurrentCharFormat(change);
}

QLineEdit* lineField(QWidget* parent, const char* objectName, const QString& accessibleName,
                     const QString& placeholder = {})
{
    auto* field = new QLineEdit(parent);
    field->setObjectName(QLatin1StringView(objectName));
    field->setPlaceholderText(placeholder.isEmpty() ? accessibleName : placeholder);
    design::name(field, accessibleName);
    return field;
}

QPlainTextEdit* textField(QWidget* parent, const char* objectName, const QString& accessibleName,
                          const QString& placeholder, int lines)
{
    auto* field = new QPlainTextEdit(parent);
    field->setObjectName(QLatin1StringView(objectName));
    field->setPlaceholderText(placeholder);
    field->setTabChangesFocus(true);
    field->setMinimumHeight(field->fontMetrics().lineSpacing() * lines + design::step(parent, 2));
    // Room to grow, but no tall empty box: a long text scrolls inside.
    field->setMaximumHeight(field->fontMetrics().lineSpacing() * lines * 2 + design::step(parent, 2));
    design::name(field, accessibleName);
    return field;
}

QComboBox* choiceField(QWidget* parent, const char* objectName, const QString& accessibleName,
                       const QStringList& choices)
{
    auto* field = new QComboBox(parent);
    field->setObjectName(QLatin1StringView(objectName));
    field->addItems(choices);
    design::name(field, accessibleName);
    return field;
}

// Shows `value` in a fixed list of choices, adding it when the list lacks it.
void showChoice(QComboBox* field, const QString& value)
{
    int index = field->findText(value);
    if (index < 0) {
        field->addItem(value);
        index = field->count() - 1;
    }
    field->setCurrentIndex(index);
}

QPushButton* button(QWidget* parent, const char* objectName, const QString& iconName, const QString& text,
                    const QString& accessibleName = {})
{
    auto* result = new QPushButton(design::icon(iconName), text, parent);
    result->setObjectName(QLatin1StringView(objectName));
    design::name(result, accessibleName.isEmpty() ? text : accessibleName);
    return result;
}

QStringList listTexts(const QListWidget* list)
{
    QStringList texts;
    for (int row = 0; row < list->count(); ++row) {
        texts << list->item(row)->text();
    }
    return texts;
}

// The show* helpers leave a field alone when it already shows the value: a reload must not move
// the cursor of a field being typed in.
void showTexts(QListWidget* list, const QStringList& texts)
{
    if (listTexts(list) != texts) {
        list->clear();
        list->addItems(texts);
    }
}

void showText(QLineEdit* field, const QString& text)
{
    if (field->text() != text) {
        field->setText(text);
    }
}

void showText(QPlainTextEdit* field, const QString& text)
{
    if (field->toPlainText() != text) {
        field->setPlainText(text);
    }
}

QString joinedItems(const QStringList& items)
{
    return items.join(QStringLiteral(", "));
}

} // namespace

StyledText styledTextOfDocument(const QTextDocument& document)
{
    StyledText text;
    for (QTextBlock block = document.begin(); block.isValid(); block = block.next()) {
        if (block != document.begin()) {
            // The paragraph mark goes with the run before it, so a bold paragraph stays one run.
            appendRun(text.runs, QStringLiteral("\n"), text.runs.isEmpty() ? RunStyle() : text.runs.last().style);
        }
        for (auto it = block.begin(); !it.atEnd(); ++it) {
            const QTextFragment fragment = it.fragment();
            if (!fragment.isValid()) {
                continue;
            }
            QString piece = fragment.text();
            piece.remove(QChar::ObjectReplacementCharacter);
            if (!piece.isEmpty()) {
                appendRun(text.runs, piece, styleOf(fragment.charFormat()));
            }
        }
    }
    return text;
}

void setDocumentStyledText(QTextDocument& document, const StyledText& text)
{
    document.clear();
    QTextCursor cursor(&document);
    bool first = true;
    for (const StyledRun& run : text.runs) {
        const QTextCharFormat format = formatOf(run.style);
        if (first) {
            cursor.setBlockCharFormat(format);
            first = false;
        }
        const QStringList paragraphs = run.text.split(u'\n');
        for (qsizetype p = 0; p < paragraphs.size(); ++p) {
            if (p > 0) {
                cursor.insertBlock(QTextBlockFormat(), format);
            }
            cursor.insertText(paragraphs[p], format);
        }
    }
}

TemplateRichEditorController::TemplateRichEditorController(QTextEdit* textView, QObject* parent)
    : QObject(parent)
    , m_textView(textView)
{
}

void TemplateRichEditorController::toggleBold()
{
    toggleAttribute(
        m_textView, [](const QTextCharFormat& format) { return format.fontWeight() >= QFont::DemiBold; },
        [](QTextCharFormat& format, bool on) { format.setFontWeight(on ? QFont::Bold : QFont::Normal); });
}

void TemplateRichEditorController::toggleItalic()
{
    toggleAttribute(
        m_textView, [](const QTextCharFormat& format) { return format.fontItalic(); },
        [](QTextCharFormat& format, bool on) { format.setFontItalic(on); });
}

void TemplateRichEditorController::toggleUnderline()
{
    toggleAttribute(
        m_textView, [](const QTextCharFormat& format) { return format.fontUnderline(); },
        [](QTextCharFormat& format, bool on) { format.setFontUnderline(on); });
}

void TemplateRichEditorController::setFontSize(double size)
{
    if (m_textView && size > 0) {
        QTextCharFormat change;
        change.setFontPointSize(size);
        m_textView->mergeCurrentCharFormat(change);
    }
}

void TemplateRichEditorController::setColor(const QColor& color)
{
    if (m_textView && color.isValid()) {
        QTextCharFormat change;
        change.setForeground(color);
        m_textView->mergeCurrentCharFormat(change);
    }
}

StyledText TemplateRichEditorController::attributed() const
{
    return m_textView ? styledTextOfDocument(*m_textView->document()) : StyledText();
}

QByteArray TemplateRichEditorController::rtf() const
{
    return rtfFromStyledText(attributed());
}

void TemplateRichEditorController::setRtf(const QByteArray& rtf)
{
    if (m_textView) {
        setDocumentStyledText(*m_textView->document(), styledTextFromRtf(rtf).value_or(StyledText()));
    }
}

QColor builderBodyColor(const QString& name)
{
    // The colours the documents draw the body in.
    if (name == QLatin1StringView("Purple")) {
        return QColor::fromRgbF(0.45f, 0.2f, 0.8f);
    }
    if (name == QLatin1StringView("Blue")) {
        return QColor::fromRgbF(0.1f, 0.35f, 0.85f);
    }
    if (name == QLatin1StringView("Red")) {
        return QColor::fromRgbF(0.8f, 0.15f, 0.15f);
    }
    if (name == QLatin1StringView("Green")) {
        return QColor::fromRgbF(0.1f, 0.55f, 0.3f);
    }
    if (name == QLatin1StringView("Gold")) {
        return QColor::fromRgbF(0.75f, 0.55f, 0.05f);
    }
    return QColor::fromRgbF(0.14f, 0.13f, 0.2f);
}

const QStringList& builderBodyColorNames()
{
    static const QStringList names = {QStringLiteral("Ink"), QStringLiteral("Purple"), QStringLiteral("Blue"),
                                      QStringLiteral("Red"), QStringLiteral("Green"),  QStringLiteral("Gold")};
    return names;
}

const QStringList& builderOutputFormats()
{
    static const QStringList formats = {QStringLiteral("PDF"),   QStringLiteral("Text"),     QStringLiteral("HTML"),
                                        QStringLiteral("Email"), QStringLiteral("WhatsApp"), QStringLiteral("Image"),
                                        QStringLiteral("Video")};
    return formats;
}

AppBuilderEditor::AppBuilderEditor(DB& db, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_defaults(defaults)
    , m_pause(new QTimer(this))
    , m_title(new QLabel(this))
    , m_status(new InlineMessage(this))
{
    setObjectName(QStringLiteral("appBuilderEditor"));
    m_pause->setSingleShot(true);
    m_pause->setInterval(typingPauseMs);
    connect(m_pause, &QTimer::timeout, this, &AppBuilderEditor::save);
    // tavoctl and other screens change the open app too: Defaults follows the file for them.
    connect(&m_defaults, &Defaults::valuesChanged, this, &AppBuilderEditor::takeOutsideChanges);
    m_status->setObjectName(QStringLiteral("builderEditorStatus"));
    m_title->setObjectName(QStringLiteral("builderAppTitle"));
    m_title->setFont(design::sectionHeaderFont(font()));

    auto* back = new QToolButton(this);
    back->setObjectName(QStringLiteral("builderBack"));
    back->setIcon(design::icon(QStringLiteral("go-previous")));
    back->setText(QStringLiteral("All apps"));
    back->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    back->setAutoRaise(true);
    design::name(back, QStringLiteral("Back to all apps"));
    auto* saveTemplateButton = button(this, "saveBuilderTemplate", QStringLiteral("document-save-as"),
                                      QStringLiteral("Save template…"), QStringLiteral("Save as reusable template"));
    auto* setDefaultButton =
        button(this, "setBuilderDefault", QStringLiteral("dialog-ok-apply"), QStringLiteral("Set as Default"));

    auto* content = new QWidget(this);
    content->setObjectName(QStringLiteral("builderEditorContent"));
    auto* cards = new QVBoxLayout(content);
    cards->setContentsMargins(0, 0, design::step(this), 0);
    cards->setSpacing(design::step(this, 2));
    cards->addWidget(buildActionCard());
    cards->addWidget(buildInputsCard());
    cards->addWidget(buildFormulaCard());
    cards->addWidget(buildTemplateCard());
    cards->addWidget(buildMediaCard());
    cards->addWidget(buildLookCard());
    cards->addStretch();
    auto* scroll = new QScrollArea(this);
    scroll->setObjectName(QStringLiteral("builderEditorScroll"));
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidget(content);
    design::name(scroll, QStringLiteral("App settings"));

    auto* top = new QHBoxLayout;
    top->addWidget(back);
    top->addWidget(m_title, 1);
    top->addWidget(saveTemplateButton);
    top->addWidget(setDefaultButton);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(design::step(this));
    layout->addLayout(top);
    layout->addWidget(m_status);
    layout->addWidget(scroll, 1);

    connect(back, &QToolButton::clicked, this, [this] {
        save();
        emit backRequested();
    });
    connect(setDefaultButton, &QPushButton::clicked, this, [this] { setAsDefault(); });
    connect(saveTemplateButton, &QPushButton::clicked, this, [this] {
        bool ok = false;
        const QString name = QInputDialog::getText(this, QStringLiteral("Save template"),
                                                   QStringLiteral("Template name"), QLineEdit::Normal, {}, &ok);
        if (ok) {
            saveTemplate(name);
        }
    });
}

AppBuilderEditor::~AppBuilderEditor()
{
    if (m_pause->isActive()) {
        save();
    }
}

QWidget* AppBuilderEditor::buildActionCard()
{
    auto* card = new Card(QStringLiteral("Action"), QStringLiteral("system-run"), this);
    m_description = lineField(card, "builderDescription", QStringLiteral("Description"),
                              QStringLiteral("One line for the gallery"));
    m_prefix = lineField(card, "builderPrefix", QStringLiteral("Command prefix"));
    m_prompt = textField(card, "builderPrompt", QStringLiteral("Action prompt"), builderTexts::actionPlaceholder, 4);
    m_format = choiceField(card, "builderFormat", QStringLiteral("Output format"), builderOutputFormats());
    m_creditCost = lineField(card, "builderCreditCost", QStringLiteral("Credits shown"));
    m_model = choiceField(card, "builderModel", QStringLiteral("AI model"), {});
    m_apiKey = lineField(card, "builderApiKey", QStringLiteral("API key"));
    m_apiKey->setEchoMode(QLineEdit::Password);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Description"), m_description);
    form->addRow(QStringLiteral("Command prefix"), m_prefix);
    form->addRow(QStringLiteral("Action prompt"), m_prompt);
    form->addRow(QStringLiteral("Output format"), m_format);
    form->addRow(QStringLiteral("Credits shown"), m_creditCost);
    form->addRow(QStringLiteral("AI model"), m_model);
    form->addRow(QStringLiteral("API key"), m_apiKey);
    card->body()->addLayout(form);

    for (QLineEdit* field : {m_description, m_creditCost}) {
        connect(field, &QLineEdit::textEdited, this, &AppBuilderEditor::edited);
    }
    connect(m_prefix, &QLineEdit::textEdited, this, &AppBuilderEditor::slotsEdited);
    connect(m_prompt, &QPlainTextEdit::textChanged, this, &AppBuilderEditor::edited);
    connect(m_format, &QComboBox::activated, this, &AppBuilderEditor::edited);
    connect(m_model, &QComboBox::activated, this, [this] { selectModel(m_model->currentData().toString()); });
    connect(m_apiKey, &QLineEdit::textEdited, this, [this] {
        m_keyEdited = true;
        m_pause->start();
    });
    return card;
}

QWidget* AppBuilderEditor::buildInputsCard()
{
    auto* card = new Card(QStringLiteral("Inputs"), QStringLiteral("view-list-details"), this);
    m_variables = lineField(card, "builderVariables", QStringLiteral("Variables"),
                            QStringLiteral("Comma-separated, e.g. Amount, Due Date"));
    m_typesBox = new QWidget(card);
    m_typesBox->setObjectName(QStringLiteral("builderVariableTypes"));
    m_types = new QFormLayout(m_typesBox);
    m_types->setContentsMargins(0, 0, 0, 0);
    m_collections = new QListWidget(card);
    m_collections->setObjectName(QStringLiteral("builderCollections"));
    design::name(m_collections, QStringLiteral("Source collections"));
    m_records = new QListWidget(card);
    m_records->setObjectName(QStringLiteral("builderRecords"));
    design::name(m_records, QStringLiteral("Selected records"));
    for (QListWidget* list : {m_collections, m_records}) {
        list->setMaximumHeight(fontMetrics().lineSpacing() * 7);
    }
    m_outputCollections = lineField(card, "builderOutputCollections", QStringLiteral("Output collections"),
                                    QStringLiteral("Comma-separated collections that take the result"));
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Variables"), m_variables);
    form->addRow(QStringLiteral("Variable types"), m_typesBox);
    form->addRow(QStringLiteral("Source collections"), m_collections);
    form->addRow(QStringLiteral("Records to try"), m_records);
    form->addRow(QStringLiteral("Output collections"), m_outputCollections);
    card->body()->addLayout(form);

    connect(m_variables, &QLineEdit::textEdited, this, &AppBuilderEditor::slotsEdited);
    connect(m_outputCollections, &QLineEdit::textEdited, this, &AppBuilderEditor::edited);
    connect(m_collections, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
        if (m_showing) {
            return;
        }
        QStringList chosen = builderListItems(m_state.collections);
        chosen.removeAll(item->text());
        if (item->checkState() == Qt::Checked) {
            chosen << item->text();
        }
        m_state.collections = joinedItems(chosen);
        showRecordChoices();
        reloadOrder(true);
        edited();
    });
    connect(m_records, &QListWidget::itemChanged, this, [this] {
        if (m_showing) {
            return;
        }
        QStringList chosen;
        for (int row = 0; row < m_records->count(); ++row) {
            if (m_records->item(row)->checkState() == Qt::Checked) {
                chosen << m_records->item(row)->data(Qt::UserRole).toString();
            }
        }
        m_state.selectedRecords = chosen;
        edited();
    });
    return card;
}

QWidget* AppBuilderEditor::buildFormulaCard()
{
    auto* card = new Card(QStringLiteral("Formulas and command"), QStringLiteral("accessories-calculator"), this);
    m_calculations =
        textField(card, "builderCalculations", QStringLiteral("Formulas"), QStringLiteral("One formula a line"), 3);
    auto* examples = quietLabel(formulaExamplesText, card);
    examples->setObjectName(QStringLiteral("formulaExamples"));
    auto* insert = button(card, "insertGstTotal", QStringLiteral("list-add"), insertGstAndTotalTitle);
    m_blocks = new QListWidget(card);
    m_blocks->setObjectName(QStringLiteral("formulaBlocks"));
    m_blocks->setFlow(QListView::LeftToRight);
    m_blocks->setWrapping(true);
    m_blocks->setSpacing(qMax(1, design::step(this) / 2));
    m_blocks->setMaximumHeight(fontMetrics().lineSpacing() * 4);
    design::name(m_blocks, QStringLiteral("Command blocks"));
    auto* earlier = new QToolButton(card);
    earlier->setObjectName(QStringLiteral("blockEarlier"));
    earlier->setIcon(design::icon(QStringLiteral("go-previous")));
    design::name(earlier, QStringLiteral("Move block earlier"));
    auto* later = new QToolButton(card);
    later->setObjectName(QStringLiteral("blockLater"));
    later->setIcon(design::icon(QStringLiteral("go-next")));
    design::name(later, QStringLiteral("Move block later"));
    m_blockActions = new QToolButton(card);
    m_blockActions->setObjectName(QStringLiteral("blockActions"));
    m_blockActions->setIcon(design::icon(QStringLiteral("overflow-menu")));
    m_blockActions->setText(QStringLiteral("Block"));
    m_blockActions->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_blockActions->setPopupMode(QToolButton::InstantPopup);
    design::name(m_blockActions, QStringLiteral("Block actions"));
    auto* menu = new QMenu(m_blockActions);
    menu->setObjectName(QStringLiteral("blockMenu"));
    m_blockActions->setMenu(menu);
    connect(menu, &QMenu::aboutToShow, this, [this, menu] {
        menu->clear();
        const int at = m_blocks->currentRow();
        const QString token = m_order ? m_order->order().value(at) : QString();
        if (token.startsWith(formulaCollectionPrefix)) {
            QMenu* choose = menu->addMenu(design::icon(QStringLiteral("folder")), chooseCollectionsTitle);
            for (const QString& collection : m_db.collections()) {
                choose->addAction(collection, this, [this, at, collection] { replaceCollectionBlock(at, collection); });
            }
            menu->addAction(design::icon(QStringLiteral("folder-new")), createCollectionTitle, this,
                            &AppBuilderEditor::collectionsRequested);
            menu->addAction(design::icon(QStringLiteral("folder-open")), openCollectionBuilderTitle, this,
                            &AppBuilderEditor::collectionsRequested);
        }
        QAction* remove = menu->addAction(design::icon(QStringLiteral("list-remove")), removeFormulaBlockTitle, this,
                                          [this, at] { removeFormulaBlock(at); });
        remove->setEnabled(token.startsWith(formulaCollectionPrefix) || token.startsWith(formulaVariablePrefix));
    });
    m_preview = new QLabel(card);
    m_preview->setObjectName(QStringLiteral("formulaPreview"));
    m_preview->setFont(design::fixedFont(font()));
    m_preview->setWordWrap(true);
    m_preview->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto* formulaRow = new QHBoxLayout;
    formulaRow->addWidget(m_calculations, 1);
    formulaRow->addWidget(insert, 0, Qt::AlignTop);
    auto* blockRow = new QHBoxLayout;
    blockRow->addWidget(m_blocks, 1);
    blockRow->addWidget(earlier, 0, Qt::AlignTop);
    blockRow->addWidget(later, 0, Qt::AlignTop);
    blockRow->addWidget(m_blockActions, 0, Qt::AlignTop);
    card->body()->addLayout(formulaRow);
    card->body()->addWidget(examples);
    card->body()->addLayout(blockRow);
    card->body()->addWidget(m_preview);

    connect(m_calculations, &QPlainTextEdit::textChanged, this, &AppBuilderEditor::edited);
    connect(insert, &QPushButton::clicked, this, [this] { m_calculations->setPlainText(insertGstAndTotalFormulas); });
    connect(earlier, &QToolButton::clicked, this,
            [this] { moveFormulaBlock(m_blocks->currentRow(), m_blocks->currentRow() - 1); });
    connect(later, &QToolButton::clicked, this,
            [this] { moveFormulaBlock(m_blocks->currentRow(), m_blocks->currentRow() + 1); });
    return card;
}

QWidget* AppBuilderEditor::buildTemplateCard()
{
    auto* card = new Card(QStringLiteral("Template"), QStringLiteral("x-office-document"), this);
    m_template = choiceField(card, "builderTemplate", QStringLiteral("Template style"), {});
    m_details = textField(card, "builderDetails", QStringLiteral("Predefined details"),
                          QStringLiteral("Fixed text that {{details}} stands for"), 3);

    auto tool = [card](const char* objectName, const QString& iconName, const QString& name) {
        auto* result = new QToolButton(card);
        result->setObjectName(QLatin1StringView(objectName));
        result->setIcon(design::icon(iconName));
        design::name(result, name);
        return result;
    };
    auto* bold = tool("richBold", QStringLiteral("format-text-bold"), QStringLiteral("Bold"));
    auto* italic = tool("richItalic", QStringLiteral("format-text-italic"), QStringLiteral("Italic"));
    auto* underline = tool("richUnderline", QStringLiteral("format-text-underline"), QStringLiteral("Underline"));
    auto* color = tool("richColor", QStringLiteral("format-text-color"), QStringLiteral("Text colour"));
    color->setPopupMode(QToolButton::InstantPopup);
    auto* colors = new QMenu(color);
    for (const QString& name : builderBodyColorNames()) {
        QPixmap swatch(16, 16);
        swatch.fill(builderBodyColor(name));
        colors->addAction(QIcon(swatch), name, this, [this, name] { m_rich->setColor(builderBodyColor(name)); });
    }
    color->setMenu(colors);
    m_richSize = new QDoubleSpinBox(card);
    m_richSize->setObjectName(QStringLiteral("richSize"));
    m_richSize->setRange(6, 96);
    m_richSize->setValue(14);
    m_richSize->setSuffix(QStringLiteral(" pt"));
    design::name(m_richSize, QStringLiteral("Size of the selected text"));
    auto* applySize = tool("richApplySize", QStringLiteral("format-font-size-more"), QStringLiteral("Apply size"));

    m_richText = new QTextEdit(card);
    m_richText->setObjectName(QStringLiteral("richTemplate"));
    m_richText->setAcceptRichText(true);
    m_richText->setTabChangesFocus(true);
    m_richText->setPlaceholderText(
        QStringLiteral("Rich template: text with {{tokens}}, styled as the output should be"));
    m_richText->setMinimumHeight(fontMetrics().lineSpacing() * 8);
    m_richText->setMaximumHeight(fontMetrics().lineSpacing() * 16);
    design::name(m_richText, QStringLiteral("Rich template"));
    m_rich = new TemplateRichEditorController(m_richText, this);
    m_tokenCheck = quietLabel(QString(), card);
    m_tokenCheck->setObjectName(QStringLiteral("templateTokenCheck"));

    m_bold = new QCheckBox(QStringLiteral("Bold"), card);
    m_bold->setObjectName(QStringLiteral("builderBold"));
    m_italic = new QCheckBox(QStringLiteral("Italic"), card);
    m_italic->setObjectName(QStringLiteral("builderItalic"));
    m_underline = new QCheckBox(QStringLiteral("Underline"), card);
    m_underline->setObjectName(QStringLiteral("builderUnderline"));
    design::name(m_bold, QStringLiteral("Body bold"));
    design::name(m_italic, QStringLiteral("Body italic"));
    design::name(m_underline, QStringLiteral("Body underline"));
    m_fontSize = new QDoubleSpinBox(card);
    m_fontSize->setObjectName(QStringLiteral("builderFontSize"));
    m_fontSize->setRange(6, 72);
    m_fontSize->setSuffix(QStringLiteral(" pt"));
    design::name(m_fontSize, QStringLiteral("Body font size"));
    m_fontColor = choiceField(card, "builderFontColor", QStringLiteral("Body colour"), builderBodyColorNames());
    m_asset = lineField(card, "builderAsset", QStringLiteral("Logo or background"),
                        QStringLiteral("An image or a PDF drawn on every page"));
    auto* chooseAsset = button(card, "chooseBuilderAsset", QStringLiteral("document-open"), QStringLiteral("Choose…"),
                               QStringLiteral("Choose logo or background"));
    m_referenceTemplates = new QListWidget(card);
    m_referenceTemplates->setObjectName(QStringLiteral("builderReferenceTemplates"));
    m_referenceTemplates->setMaximumHeight(fontMetrics().lineSpacing() * 4);
    design::name(m_referenceTemplates, QStringLiteral("Reference templates"));
    auto* addReference = button(card, "addReferenceTemplate", QStringLiteral("list-add"), QStringLiteral("Add…"),
                                QStringLiteral("Add reference template"));
    auto* removeReference = button(card, "removeReferenceTemplate", QStringLiteral("list-remove"),
                                   QStringLiteral("Remove"), QStringLiteral("Remove reference template"));

    auto* styleRow = new QHBoxLayout;
    styleRow->addWidget(m_template, 1);
    auto* toolbar = new QHBoxLayout;
    for (QWidget* each : std::initializer_list<QWidget*>{bold, italic, underline, color, m_richSize, applySize}) {
        toolbar->addWidget(each);
    }
    toolbar->addStretch();
    auto* body = new QHBoxLayout;
    for (QWidget* each : std::initializer_list<QWidget*>{m_bold, m_italic, m_underline, m_fontSize, m_fontColor}) {
        body->addWidget(each);
    }
    body->addStretch();
    auto* assetRow = new QHBoxLayout;
    assetRow->addWidget(m_asset, 1);
    assetRow->addWidget(chooseAsset);
    auto* referenceButtons = new QVBoxLayout;
    referenceButtons->addWidget(addReference);
    referenceButtons->addWidget(removeReference);
    referenceButtons->addStretch();
    auto* referenceRow = new QHBoxLayout;
    referenceRow->addWidget(m_referenceTemplates, 1);
    referenceRow->addLayout(referenceButtons);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Style"), styleRow);
    form->addRow(QStringLiteral("Details"), m_details);
    auto* look = new QFormLayout;
    look->addRow(QStringLiteral("Body text"), body);
    look->addRow(QStringLiteral("Logo or background"), assetRow);
    look->addRow(QStringLiteral("Reference templates"), referenceRow);
    card->body()->addLayout(form);
    card->body()->addLayout(toolbar);
    card->body()->addWidget(m_richText);
    card->body()->addWidget(m_tokenCheck);
    card->body()->addLayout(look);

    connect(m_template, &QComboBox::activated, this, [this] { chooseTemplate(m_template->currentText()); });
    connect(m_details, &QPlainTextEdit::textChanged, this, &AppBuilderEditor::edited);
    connect(bold, &QToolButton::clicked, m_rich, &TemplateRichEditorController::toggleBold);
    connect(italic, &QToolButton::clicked, m_rich, &TemplateRichEditorController::toggleItalic);
    connect(underline, &QToolButton::clicked, m_rich, &TemplateRichEditorController::toggleUnderline);
    connect(applySize, &QToolButton::clicked, this, [this] { m_rich->setFontSize(m_richSize->value()); });
    connect(m_richText, &QTextEdit::textChanged, this, [this] {
        if (m_showing) {
            return;
        }
        // An empty field is no rich template: the plain prompt is used again.
        if (m_richText->document()->isEmpty()) {
            m_state.richTextData.reset();
        } else {
            m_state.richTextData = m_rich->rtf();
        }
        edited();
    });
    for (QCheckBox* box : {m_bold, m_italic, m_underline}) {
        connect(box, &QCheckBox::toggled, this, &AppBuilderEditor::edited);
    }
    connect(m_fontSize, &QDoubleSpinBox::valueChanged, this, [this] {
        QFont base = m_richText->document()->defaultFont();
        base.setPointSizeF(m_fontSize->value());
        m_richText->document()->setDefaultFont(base);
        edited();
    });
    connect(m_fontColor, &QComboBox::activated, this, &AppBuilderEditor::edited);
    connect(m_asset, &QLineEdit::textEdited, this, &AppBuilderEditor::edited);
    connect(chooseAsset, &QPushButton::clicked, this, [this] {
        const QString path = QFileDialog::getOpenFileName(this, QStringLiteral("Choose logo or background"), {},
                                                          QStringLiteral("Images and PDF (*.png *.jpg *.jpeg *.webp "
                                                                         "*.pdf);;All files (*)"));
        if (!path.isEmpty()) {
            m_asset->setText(path);
            edited();
        }
    });
    connect(addReference, &QPushButton::clicked, this, [this] {
        const QStringList paths = QFileDialog::getOpenFileNames(this, QStringLiteral("Add reference templates"));
        if (!paths.isEmpty()) {
            m_referenceTemplates->addItems(paths);
            edited();
        }
    });
    connect(removeReference, &QPushButton::clicked, this, [this] {
        delete m_referenceTemplates->currentItem();
        edited();
    });
    return card;
}

QWidget* AppBuilderEditor::buildMediaCard()
{
    auto* card = new Card(QStringLiteral("Images and video"), QStringLiteral("image-x-generic"), this);
    m_imageProfile = choiceField(card, "builderImageProfile", QStringLiteral("Image profile"), {});
    m_imageModel = lineField(card, "builderImageModel", QStringLiteral("Image model"));
    m_videoModel = lineField(card, "builderVideoModel", QStringLiteral("Video model"));
    m_aspectRatio = choiceField(card, "builderAspectRatio", QStringLiteral("Aspect ratio"), aspectRatios);
    m_resolution = choiceField(card, "builderResolution", QStringLiteral("Resolution"), resolutions);
    m_mediaReferences = new QListWidget(card);
    m_mediaReferences->setObjectName(QStringLiteral("builderMediaReferences"));
    m_mediaReferences->setMaximumHeight(fontMetrics().lineSpacing() * 4);
    design::name(m_mediaReferences, QStringLiteral("Reference media"));
    auto* addMedia = button(card, "addMediaReference", QStringLiteral("list-add"), QStringLiteral("Add…"),
                            QStringLiteral("Add reference media"));
    auto* removeMedia = button(card, "removeMediaReference", QStringLiteral("list-remove"), QStringLiteral("Remove"),
                               QStringLiteral("Remove reference media"));
    auto* mediaButtons = new QVBoxLayout;
    mediaButtons->addWidget(addMedia);
    mediaButtons->addWidget(removeMedia);
    mediaButtons->addStretch();
    auto* mediaRow = new QHBoxLayout;
    mediaRow->addWidget(m_mediaReferences, 1);
    mediaRow->addLayout(mediaButtons);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Image profile"), m_imageProfile);
    form->addRow(QStringLiteral("Image model"), m_imageModel);
    form->addRow(QStringLiteral("Video model"), m_videoModel);
    form->addRow(QStringLiteral("Aspect ratio"), m_aspectRatio);
    form->addRow(QStringLiteral("Resolution"), m_resolution);
    form->addRow(QStringLiteral("Reference media"), mediaRow);
    card->body()->addLayout(form);

    connect(m_imageProfile, &QComboBox::activated, this, [this] {
        m_state.imageProfile = m_imageProfile->currentData().toString();
        edited();
    });
    for (QLineEdit* field : {m_imageModel, m_videoModel}) {
        connect(field, &QLineEdit::textEdited, this, &AppBuilderEditor::edited);
    }
    for (QComboBox* field : {m_aspectRatio, m_resolution}) {
        connect(field, &QComboBox::activated, this, &AppBuilderEditor::edited);
    }
    connect(addMedia, &QPushButton::clicked, this, [this] {
        const QStringList paths = QFileDialog::getOpenFileNames(this, QStringLiteral("Add reference media"));
        if (!paths.isEmpty()) {
            m_mediaReferences->addItems(paths);
            edited();
        }
    });
    connect(removeMedia, &QPushButton::clicked, this, [this] {
        delete m_mediaReferences->currentItem();
        edited();
    });
    return card;
}

QWidget* AppBuilderEditor::buildLookCard()
{
    auto* card = new Card(QStringLiteral("Gallery card"), QStringLiteral("preferences-desktop-icons"), this);
    m_appIcon = lineField(card, "builderAppIcon", QStringLiteral("Icon file"), QStringLiteral("A picture of your own"));
    m_appIconSymbol = lineField(card, "builderAppIconSymbol", QStringLiteral("Icon symbol"));
    m_appCover = lineField(card, "builderAppCover", QStringLiteral("Cover image or video"));
    auto* chooseIcon = button(card, "chooseBuilderIcon", QStringLiteral("document-open"), QStringLiteral("Choose…"),
                              QStringLiteral("Choose icon file"));
    auto* chooseCover = button(card, "chooseBuilderCover", QStringLiteral("document-open"), QStringLiteral("Choose…"),
                               QStringLiteral("Choose cover"));
    auto* iconRow = new QHBoxLayout;
    iconRow->addWidget(m_appIcon, 1);
    iconRow->addWidget(chooseIcon);
    auto* coverRow = new QHBoxLayout;
    coverRow->addWidget(m_appCover, 1);
    coverRow->addWidget(chooseCover);
    auto* form = new QFormLayout;
    form->addRow(QStringLiteral("Icon file"), iconRow);
    form->addRow(QStringLiteral("Icon symbol"), m_appIconSymbol);
    form->addRow(QStringLiteral("Cover"), coverRow);
    card->body()->addLayout(form);

    for (QLineEdit* field : {m_appIcon, m_appIconSymbol, m_appCover}) {
        connect(field, &QLineEdit::textEdited, this, &AppBuilderEditor::edited);
    }
    auto choose = [this](QLineEdit* field, const QString& title, const QString& filter) {
        const QString path = QFileDialog::getOpenFileName(this, title, {}, filter);
        if (!path.isEmpty()) {
            field->setText(path);
            edited();
        }
    };
    connect(chooseIcon, &QPushButton::clicked, this, [this, choose] {
        choose(m_appIcon, QStringLiteral("Choose icon file"),
               QStringLiteral("Images (*.png *.jpg *.jpeg *.svg *.webp)"));
    });
    connect(chooseCover, &QPushButton::clicked, this, [this, choose] {
        choose(m_appCover, QStringLiteral("Choose cover"),
               QStringLiteral("Images and video (*.png *.jpg *.jpeg *.webp *.gif *.mp4 *.mov)"));
    });
    return card;
}

void AppBuilderEditor::openApp(const QString& app)
{
    if (m_pause->isActive()) {
        save(); // what was typed belongs to the app being left
    }
    m_app = app;
    migrateLegacyBillBuilderSchema(m_defaults, app);
    const QList<CollectionAIModelProfile> profiles = AIModelProfileStore::load(m_defaults);
    const QString profileID = m_defaults.string(builderKey(QStringLiteral("ImageProfile"), app)).value_or(QString());
    bool gemini = false;
    {
        const QSignalBlocker blocker(m_imageProfile);
        m_imageProfile->clear();
        for (const CollectionAIModelProfile& profile : profiles) {
            if (!isImageModelProfile(profile)) {
                continue;
            }
            m_imageProfile->addItem(profile.name, profile.id);
            // The first image-capable profile stands in while none is chosen.
            if (profile.id == profileID || (profileID.isEmpty() && m_imageProfile->count() == 1)) {
                gemini = providerClass(profile.provider) == AIProviderClass::Gemini;
            }
        }
    }
    m_geminiProfile = gemini;
    m_state = loadConfiguration(m_defaults, app, gemini);
    m_stored = m_state;
    m_loaded = m_state;
    m_order = std::make_unique<FormulaOrderModel>(m_defaults, app);
    showModel();
    m_title->setText(app);
    m_status->showMessage(QString());
    showState();
    reloadOrder(false);
}

void AppBuilderEditor::closeApp()
{
    m_pause->stop();
    m_app.clear();
    m_order.reset();
}

void AppBuilderEditor::takeOutsideChanges()
{
    if (m_app.isEmpty() || m_showing || !builderAppNames(m_defaults).contains(m_app)) {
        return; // an app deleted elsewhere is the page's to leave
    }
    const BuilderAppConfiguration fresh = loadConfiguration(m_defaults, m_app, m_geminiProfile);
    bool changed = false;
    bool slotsChanged = false;
    // A setting changed in the store shows its new value, unless its field holds edits not yet
    // written: those win, as they are written at the pause and the person typing has the last
    // word. Our own writes come back equal to the state and change nothing.
    auto take = [&](auto BuilderAppConfiguration::*setting, bool slot = false) {
        const bool changedInStore = fresh.*setting != m_loaded.*setting;
        const bool unsaved = m_state.*setting != m_stored.*setting;
        if (changedInStore && !unsaved && m_state.*setting != fresh.*setting) {
            m_state.*setting = fresh.*setting;
            m_stored.*setting = fresh.*setting;
            changed = true;
            slotsChanged = slotsChanged || slot;
        }
    };
    using C = BuilderAppConfiguration;
    take(&C::prompt);
    take(&C::description);
    take(&C::prefix, true);
    take(&C::variables, true);
    take(&C::variableTypes);
    take(&C::calculations);
    take(&C::formulaOrder, true);
    take(&C::collections, true);
    take(&C::outputCollections);
    take(&C::selectedRecords);
    take(&C::format);
    take(&C::imageModel);
    take(&C::imageProfile);
    take(&C::videoModel);
    take(&C::mediaReferences);
    take(&C::aspectRatio);
    take(&C::resolution);
    take(&C::details);
    take(&C::templateStyle);
    take(&C::richTextData);
    take(&C::bold);
    take(&C::italic);
    take(&C::underline);
    take(&C::fontSize);
    take(&C::fontColor);
    take(&C::asset);
    take(&C::referenceTemplates);
    take(&C::appIcon);
    take(&C::appIconSymbol);
    take(&C::appCover);
    take(&C::creditCost);
    m_loaded = fresh;
    if (!changed) {
        return;
    }
    showState();
    if (slotsChanged) {
        reloadOrder(false);
    }
}

void AppBuilderEditor::showState()
{
    m_showing = true;
    showText(m_description, m_state.description);
    showText(m_prefix, m_state.prefix);
    showText(m_prompt, m_state.prompt);
    showChoice(m_format, m_state.format);
    showText(m_creditCost, m_state.creditCost);
    showText(m_variables, m_state.variables);
    showText(m_outputCollections, m_state.outputCollections);
    showText(m_calculations, m_state.calculations);
    showText(m_details, m_state.details);
    m_bold->setChecked(m_state.bold);
    m_italic->setChecked(m_state.italic);
    m_underline->setChecked(m_state.underline);
    m_fontSize->setValue(m_state.fontSize);
    QFont base = m_richText->document()->defaultFont();
    base.setPointSizeF(m_state.fontSize);
    m_richText->document()->setDefaultFont(base);
    showChoice(m_fontColor, m_state.fontColor);
    if (m_state.richTextData) {
        if (m_rich->rtf() != *m_state.richTextData) {
            m_rich->setRtf(*m_state.richTextData);
        }
    } else if (!m_richText->document()->isEmpty()) {
        m_richText->clear();
    }
    showText(m_asset, m_state.asset);
    showTexts(m_referenceTemplates, m_state.referenceTemplates);
    const int profile = m_imageProfile->findData(m_state.imageProfile);
    m_imageProfile->setCurrentIndex(profile >= 0 ? profile : 0);
    showText(m_imageModel, m_state.imageModel);
    showText(m_videoModel, m_state.videoModel);
    showChoice(m_aspectRatio, m_state.aspectRatio);
    showChoice(m_resolution, m_state.resolution);
    showTexts(m_mediaReferences, m_state.mediaReferences);
    showText(m_appIcon, m_state.appIcon);
    showText(m_appIconSymbol, m_state.appIconSymbol);
    showText(m_appCover, m_state.appCover);
    m_showing = false;
    showTemplateChoices();
    showVariableTypes();
    showCollectionChoices();
    showRecordChoices();
    showTokenCheck();
}

void AppBuilderEditor::showVariableTypes()
{
    const QStringList variables = builderListItems(m_state.variables);
    while (m_types->rowCount() > 0) {
        m_types->removeRow(0);
    }
    m_showing = true;
    for (qsizetype i = 0; i < variables.size(); ++i) {
        auto* type = new QComboBox(m_typesBox);
        type->setObjectName(QStringLiteral("variableType%1").arg(i));
        type->addItems(variableTypeNames);
        showChoice(type, m_state.variableTypes.value(i, QStringLiteral("Text")));
        design::name(type, QStringLiteral("Type of %1").arg(variables[i]));
        connect(type, &QComboBox::activated, this, &AppBuilderEditor::edited);
        m_types->addRow(variables[i], type);
    }
    m_showing = false;
    m_typesBox->setVisible(!variables.isEmpty());
}

void AppBuilderEditor::showCollectionChoices()
{
    const QStringList chosen = builderListItems(m_state.collections);
    // The chosen ones first, so the app's sources show without scrolling; one the profile has no
    // such collection for yet stays on screen too.
    QStringList names = chosen;
    for (const QString& name : m_db.collections()) {
        if (!names.contains(name, Qt::CaseInsensitive)) {
            names << name;
        }
    }
    m_showing = true;
    m_collections->clear();
    for (const QString& name : std::as_const(names)) {
        auto* item = new QListWidgetItem(name, m_collections);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(chosen.contains(name, Qt::CaseInsensitive) ? Qt::Checked : Qt::Unchecked);
    }
    m_showing = false;
}

void AppBuilderEditor::showRecordChoices()
{
    const QStringList chosen = builderListItems(m_state.collections);
    m_showing = true;
    m_records->clear();
    for (const CollectionRecord& record : m_db.collectionRecords()) {
        if (!chosen.contains(record.collection, Qt::CaseInsensitive)) {
            continue;
        }
        auto* item = new QListWidgetItem(record.collection + QStringLiteral(" · ") + record.name, m_records);
        item->setData(Qt::UserRole, record.id);
        item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
        item->setCheckState(m_state.selectedRecords.contains(record.id) ? Qt::Checked : Qt::Unchecked);
    }
    m_records->setEnabled(m_records->count() > 0);
    if (m_records->count() == 0) {
        auto* none = new QListWidgetItem(QStringLiteral("No records in the source collections yet."));
        none->setFlags(Qt::NoItemFlags);
        m_records->addItem(none);
    }
    m_showing = false;
}

void AppBuilderEditor::showFormulaBlocks()
{
    const int current = m_blocks->currentRow();
    m_blocks->clear();
    if (!m_order) {
        return;
    }
    for (const QString& token : m_order->order()) {
        QString icon = QStringLiteral("system-run");
        if (token.startsWith(formulaCollectionPrefix)) {
            icon = QStringLiteral("folder");
        } else if (token.startsWith(formulaVariablePrefix)) {
            icon = QStringLiteral("insert-text");
        }
        auto* item = new QListWidgetItem(design::icon(icon), formulaBlockTitle(token), m_blocks);
        item->setData(Qt::UserRole, token);
    }
    m_blocks->setCurrentRow(qBound(-1, current, m_blocks->count() - 1));
    m_preview->setText(m_order->previewText());
}

void AppBuilderEditor::showTemplateChoices()
{
    const QSignalBlocker blocker(m_template);
    m_template->clear();
    m_template->addItems(templateChoices(m_defaults, m_app));
    showChoice(m_template, m_state.templateStyle);
}

void AppBuilderEditor::showTokenCheck()
{
    const QStringList keys = allowedTemplateKeys(builderListItems(m_state.variables), m_state.calculations,
                                                 int(builderListItems(m_state.collections).size()));
    const QString templateText = m_richText->document()->isEmpty() ? m_state.prompt : m_richText->toPlainText();
    const QStringList invalid = invalidTemplateTokens(templateText, keys);
    m_tokenCheck->setText(
        invalid.isEmpty() ? QString() : QStringLiteral("This app can’t fill: ") + invalid.join(QStringLiteral(", ")));
    m_tokenCheck->setVisible(!invalid.isEmpty());
}

void AppBuilderEditor::readFields()
{
    m_state.description = m_description->text();
    m_state.prefix = m_prefix->text();
    m_state.prompt = m_prompt->toPlainText();
    m_state.format = m_format->currentText();
    m_state.creditCost = m_creditCost->text();
    m_state.variables = m_variables->text();
    QStringList types;
    for (int row = 0; row < m_types->rowCount(); ++row) {
        if (auto* type = qobject_cast<QComboBox*>(m_types->itemAt(row, QFormLayout::FieldRole)->widget())) {
            types << type->currentText();
        }
    }
    while (types.size() < builderListItems(m_state.variables).size()) {
        types << QStringLiteral("Text");
    }
    m_state.variableTypes = types;
    m_state.outputCollections = m_outputCollections->text();
    m_state.calculations = m_calculations->toPlainText();
    m_state.details = m_details->toPlainText();
    m_state.bold = m_bold->isChecked();
    m_state.italic = m_italic->isChecked();
    m_state.underline = m_underline->isChecked();
    m_state.fontSize = m_fontSize->value();
    m_state.fontColor = m_fontColor->currentText();
    m_state.asset = m_asset->text();
    m_state.referenceTemplates = listTexts(m_referenceTemplates);
    m_state.imageModel = m_imageModel->text();
    m_state.videoModel = m_videoModel->text();
    m_state.aspectRatio = m_aspectRatio->currentText();
    m_state.resolution = m_resolution->currentText();
    m_state.mediaReferences = listTexts(m_mediaReferences);
    m_state.appIcon = m_appIcon->text();
    m_state.appIconSymbol = m_appIconSymbol->text();
    m_state.appCover = m_appCover->text();
}

void AppBuilderEditor::edited()
{
    if (m_showing || m_app.isEmpty()) {
        return;
    }
    readFields();
    showTokenCheck();
    m_pause->start();
}

void AppBuilderEditor::slotsEdited()
{
    if (m_showing || m_app.isEmpty()) {
        return;
    }
    const QString variables = m_state.variables;
    edited();
    if (m_state.variables != variables) {
        showVariableTypes();
        readFields();
        reloadOrder(true);
    } else {
        reloadOrder(false); // the prefix: only the command's head changes
    }
}

void AppBuilderEditor::reloadOrder(bool persist)
{
    if (!m_order) {
        return;
    }
    m_order->load(m_state.prefix, builderListItems(m_state.collections), builderListItems(m_state.variables));
    // A new variable or collection gets its slot in the command at once.
    if (persist) {
        m_order->persist();
    }
    m_state.formulaOrder = m_order->order();
    showFormulaBlocks();
}

void AppBuilderEditor::save()
{
    m_pause->stop();
    writeKey();
    if (m_app.isEmpty()) {
        return;
    }
    persistConfiguration(m_defaults, m_app, m_state);
    // The settings the editor owns beyond the working ones, written only when they changed, so
    // an icon picked from the name stays picked from the name.
    QList<QPair<QString, QJsonValue>> extra;
    auto text = [&](const char* setting, const QString& now, const QString& before) {
        if (now != before) {
            extra.append({builderKey(QLatin1StringView(setting), m_app), now});
        }
    };
    auto texts = [&](const char* setting, const QStringList& now, const QStringList& before) {
        if (now != before) {
            extra.append({builderKey(QLatin1StringView(setting), m_app), QJsonArray::fromStringList(now)});
        }
    };
    text("Description", m_state.description, m_stored.description);
    text("Asset", m_state.asset, m_stored.asset);
    text("ImageProfile", m_state.imageProfile, m_stored.imageProfile);
    text("CreditCost", m_state.creditCost, m_stored.creditCost);
    text("AppIcon", m_state.appIcon, m_stored.appIcon);
    text("AppIconSymbol", m_state.appIconSymbol, m_stored.appIconSymbol);
    text("AppCover", m_state.appCover, m_stored.appCover);
    texts("SelectedRecords", m_state.selectedRecords, m_stored.selectedRecords);
    texts("ReferenceTemplates", m_state.referenceTemplates, m_stored.referenceTemplates);
    if (m_state.appIcon != m_stored.appIcon || m_state.appIconSymbol != m_stored.appIconSymbol) {
        extra.append({builderAppIconRevisionKey, m_defaults.number(builderAppIconRevisionKey).value_or(0) + 1});
    }
    if (!extra.isEmpty()) {
        m_defaults.setValues(extra);
    }
    m_stored = m_state;
}

void AppBuilderEditor::setAsDefault(bool confirm)
{
    if (m_app.isEmpty()) {
        return;
    }
    if (confirm) {
        QMessageBox question(QMessageBox::Question, QStringLiteral("Set as Default"), builderTexts::setDefaultQuestion,
                             QMessageBox::Yes | QMessageBox::Cancel, this);
        question.setInformativeText(builderTexts::setDefaultNote);
        if (question.exec() != QMessageBox::Yes) {
            return;
        }
    }
    if (m_pause->isActive()) {
        save();
    }
    report(tavo::setAsDefault(m_defaults, m_app, m_state));
}

void AppBuilderEditor::saveTemplate(const QString& name)
{
    if (m_app.isEmpty() || name.trimmed().isEmpty()) {
        return;
    }
    // The saved template becomes the app's style, so choosing it later brings back this style.
    m_state.templateStyle = name.trimmed();
    save();
    if (const std::optional<QString> saved = saveReusableTemplate(m_defaults, m_app, name, m_state)) {
        report(*saved);
        showTemplateChoices();
    }
}

void AppBuilderEditor::chooseTemplate(const QString& name)
{
    if (m_app.isEmpty()) {
        return;
    }
    const QString variables = m_state.variables;
    selectTemplate(m_defaults, m_app, name, m_state);
    showState();
    reloadOrder(m_state.variables != variables);
    m_pause->start();
}

QString AppBuilderEditor::status() const
{
    return m_status->text();
}

bool AppBuilderEditor::moveFormulaBlock(int from, int to)
{
    if (!m_order || !m_order->moveFormulaBlock(from, to)) {
        return false;
    }
    m_state.formulaOrder = m_order->order();
    m_stored.formulaOrder = m_state.formulaOrder;
    showFormulaBlocks();
    m_blocks->setCurrentRow(to);
    return true;
}

bool AppBuilderEditor::replaceCollectionBlock(int at, const QString& collection)
{
    if (!m_order || !m_order->replaceCollectionBlock(at, collection)) {
        return false;
    }
    m_state.collections = joinedItems(m_order->collections());
    m_state.formulaOrder = m_order->order();
    showCollectionChoices();
    showRecordChoices();
    showFormulaBlocks();
    showTokenCheck();
    save();
    return true;
}

bool AppBuilderEditor::removeFormulaBlock(int at)
{
    if (!m_order) {
        return false;
    }
    const QString token = m_order->order().value(at);
    if (token.startsWith(formulaVariablePrefix)) {
        const QString name = token.mid(formulaVariablePrefix.size());
        QStringList variables = builderListItems(m_state.variables);
        const qsizetype index = variables.indexOf(name);
        if (index < 0) {
            return false;
        }
        variables.removeAt(index);
        if (index < m_state.variableTypes.size()) {
            m_state.variableTypes.removeAt(index);
        }
        m_state.variables = joinedItems(variables);
        m_showing = true;
        m_variables->setText(m_state.variables);
        m_showing = false;
        showVariableTypes();
    } else if (token.startsWith(formulaCollectionPrefix)) {
        QStringList collections = builderListItems(m_state.collections);
        if (!collections.removeOne(token.mid(formulaCollectionPrefix.size()))) {
            return false;
        }
        m_state.collections = joinedItems(collections);
        showCollectionChoices();
        showRecordChoices();
    } else {
        return false;
    }
    reloadOrder(true);
    showTokenCheck();
    save();
    return true;
}

void AppBuilderEditor::showModel()
{
    const QList<CollectionAIModelProfile> profiles = AIModelProfileStore::load(m_defaults);
    const CollectionAIModelProfile selected =
        AIModelProfileStore::selectedModel(profiles, AIModelProfileStore::selectedProfileID(m_defaults));
    {
        const QSignalBlocker blocker(m_model);
        m_model->clear();
        for (const CollectionAIModelProfile& profile : profiles) {
            m_model->addItem(profile.name + QStringLiteral(" · ") + profile.provider, profile.id);
        }
        m_model->setCurrentIndex(m_model->findData(selected.id));
    }
    m_keyAccount = selected.keyAccount;
    m_keyEdited = false;
    const Result<std::optional<QString>> key = KeyStore::load(m_keyAccount);
    m_apiKey->setText(key ? key->value_or(QString()) : QString());
}

void AppBuilderEditor::selectModel(const QString& profileID)
{
    writeKey(); // the key typed so far belongs to the model being left
    for (const CollectionAIModelProfile& profile : AIModelProfileStore::load(m_defaults)) {
        if (profile.id == profileID) {
            AIModelProfileStore::selectProfile(m_defaults, profile);
            break;
        }
    }
    showModel();
}

void AppBuilderEditor::writeKey()
{
    if (!m_keyEdited || m_keyAccount.isEmpty()) {
        return;
    }
    m_keyEdited = false;
    if (const std::optional<TavoError> failed = KeyStore::save(m_apiKey->text().trimmed(), m_keyAccount)) {
        m_status->showMessage(failed->description, InlineMessage::Kind::Warning);
    }
}

void AppBuilderEditor::report(const QString& text)
{
    m_status->showMessage(text, InlineMessage::Kind::Information);
}

void AppBuilderEditor::hideEvent(QHideEvent* event)
{
    if (m_pause->isActive()) {
        save();
    }
    QWidget::hideEvent(event);
}

} // namespace tavo
