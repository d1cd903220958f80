#pragma once

#include "builder/builder_app.h"
#include "builder/calculations.h"
#include "language/rtf.h"

#include <QByteArray>
#include <QColor>
#include <QObject>
#include <QPointer>
#include <QTextEdit>
#include <QWidget>

#include <memory>

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QListWidget;
class QPlainTextEdit;
class QPushButton;
class QTextDocument;
class QTimer;
class QToolButton;

namespace tavo {

class DB;
class InlineMessage;

// The runs of a document as the project's styled text: paragraphs end in "\n", and only the
// attributes a run sets itself are kept, so the document's own font reads back as no attribute.
StyledText styledTextOfDocument(const QTextDocument& document);
// Puts `text` into `document` in place of what it held.
void setDocumentStyledText(QTextDocument& document, const StyledText& text);

// The rich template's commands over the editor's text field: they change the selection, or with
// nothing selected the style of what is typed next.
class TemplateRichEditorController : public QObject
{
    Q_OBJECT

public:
    explicit TemplateRichEditorController(QTextEdit* textView, QObject* parent = nullptr);

    QTextEdit* textView() const { return m_textView; }

    void toggleBold();
    void toggleItalic();
    void toggleUnderline();
    void setFontSize(double size);
    void setColor(const QColor& color);

    StyledText attributed() const;
    QByteArray rtf() const;
    // Shows a stored template; bytes that are no RTF show an empty one.
    void setRtf(const QByteArray& rtf);

private:
    QPointer<QTextEdit> m_textView;
};

// The colour a body colour name stands for, as the documents draw it; "Ink" and unknown names
// are the dark default.
QColor builderBodyColor(const QString& name);
const QStringList& builderBodyColorNames();
const QStringList& builderOutputFormats();

// The editor of one builder app: every setting of the app, kept in the store as it is edited
// (after a short pause in typing, and at once when the editor is left), the rich template, the
// formulas and the order of the command's blocks.
class AppBuilderEditor : public QWidget
{
    Q_OBJECT

public:
    AppBuilderEditor(DB& db, Defaults& defaults, QWidget* parent = nullptr);
    ~AppBuilderEditor() override;

    // Moves an old bill app to the new schema, then reads the app into the fields.
    void openApp(const QString& app);
    QString app() const { return m_app; }
    // Leaves the app without writing anything more of it: it is being deleted.
    void closeApp();
    const BuilderAppConfiguration& state() const { return m_state; }

    // Writes what waits for the pause in typing.
    void save();
    // "Set as Default" after its question; `confirm` false skips the question.
    void setAsDefault(bool confirm = true);
    // Saves the current state under `name` in the app's template library.
    void saveTemplate(const QString& name);
    void chooseTemplate(const QString& name);
    QString status() const;

    // The model the builders use and its API key, as on "API configuration": a key typed here is
    // stored for the model's account when the editor writes.
    void selectModel(const QString& profileID);

    TemplateRichEditorController* richEditor() const { return m_rich; }
    const FormulaOrderModel* formulaOrder() const { return m_order.get(); }
    bool moveFormulaBlock(int from, int to);
    bool replaceCollectionBlock(int at, const QString& collection);
    // Takes the variable or collection of the block at `at` out of the app.
    bool removeFormulaBlock(int at);

signals:
    void backRequested();
    // "Create collection…" and "Open Collection Builder": the collections live in their section.
    void collectionsRequested();

protected:
    void hideEvent(QHideEvent* event) override;

private:
    QWidget* buildActionCard();
    QWidget* buildInputsCard();
    QWidget* buildFormulaCard();
    QWidget* buildTemplateCard();
    QWidget* buildMediaCard();
    QWidget* buildLookCard();

    void showState();
    // Another process or screen changed the open app's keys.
    void takeOutsideChanges();
    void showVariableTypes();
    void showCollectionChoices();
    void showRecordChoices();
    void showFormulaBlocks();
    void showTemplateChoices();
    void showTokenCheck();
    void readFields();
    void edited();
    void slotsEdited();
    void reloadOrder(bool persist);
    void report(const QString& text);
    void showModel();
    void writeKey();

    DB& m_db;
    Defaults& m_defaults;
    QString m_app;
    BuilderAppConfiguration m_state;
    BuilderAppConfiguration m_stored; // as read, to write the settings the editor owns only when changed
    BuilderAppConfiguration m_loaded; // as the store last held it, to tell what others changed
    bool m_geminiProfile = false;
    std::unique_ptr<FormulaOrderModel> m_order;
    bool m_showing = false;
    QTimer* m_pause;

    QLabel* m_title;
    InlineMessage* m_status;
    QLineEdit* m_description;
    QLineEdit* m_prefix;
    QPlainTextEdit* m_prompt;
    QComboBox* m_format;
    QComboBox* m_model;
    QLineEdit* m_apiKey;
    QString m_keyAccount;
    bool m_keyEdited = false;
    QLineEdit* m_creditCost;
    QLineEdit* m_variables;
    QWidget* m_typesBox;
    QFormLayout* m_types;
    QListWidget* m_collections;
    QListWidget* m_records;
    QLineEdit* m_outputCollections;
    QPlainTextEdit* m_calculations;
    QListWidget* m_blocks;
    QLabel* m_preview;
    QToolButton* m_blockActions;
    QComboBox* m_template;
    QPlainTextEdit* m_details;
    QTextEdit* m_richText;
    TemplateRichEditorController* m_rich;
    QDoubleSpinBox* m_richSize;
    QLabel* m_tokenCheck;
    QCheckBox* m_bold;
    QCheckBox* m_italic;
    QCheckBox* m_underline;
    QDoubleSpinBox* m_fontSize;
    QComboBox* m_fontColor;
    QLineEdit* m_asset;
    QListWidget* m_referenceTemplates;
    QComboBox* m_imageProfile;
    QLineEdit* m_imageModel;
    QLineEdit* m_videoModel;
    QComboBox* m_aspectRatio;
    QComboBox* m_resolution;
    QListWidget* m_mediaReferences;
    QLineEdit* m_appIcon;
    QLineEdit* m_appIconSymbol;
    QLineEdit* m_appCover;
};

} // namespace tavo
