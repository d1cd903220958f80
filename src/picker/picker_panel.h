#pragma once

#include "builder/builder_command.h"
#include "picker/picker_search.h"

#include <QPointer>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QSlider;
class QStackedWidget;

namespace tavo {

class BuilderShortcutCommandCard;
class DB;
class Defaults;
class ImageFace;
class PickerRows;
class PromptFace;
class RewriteFace;

// The floating picker: a window of its own that never takes the keyboard, so the application
// the user types in keeps it and the typed trigger goes on arriving there. It follows the query
// the keyboard tap collects and shows the search's results a page at a time.
class PickerPanel : public QWidget
{
    Q_OBJECT

public:
    PickerPanel(Defaults& defaults, QWidget* parent = nullptr);

    PickerSearch& search() { return m_search; }

    // Opens on the screen under the pointer, at the stored place or the default one.
    void showFor(const DB& db);
    // Closes it; the filters stay for the next opening, the query does not.
    void hidePanel();
    // The newest query wins: several in one turn of the event loop apply only the last.
    void setQuery(const QString& text);
    // Chooses the first result, if there is one, and closes.
    void chooseFirst();
    void resetPosition();
    // The size of the stored share of the screen, from the same top-left corner.
    void resizePopup();
    // The image command's face takes the largest share of the screen; false goes back to the
    // stored one. The top-left corner stays, the frame stays on the screen.
    void resizeForImageMode(bool large);
    // For a face that owns text input (an image prompt, a prompt or rewrite editor): the panel
    // stops refusing the focus and gives it to `field`, one of its own widgets, until it closes.
    void focusTextField(QWidget* field);
    bool refusesFocus() const;
    // Whether one of the panel's text fields has the keyboard now.
    bool fieldHasKeyboard() const { return m_fieldHasKeyboard; }

    // The command faces. Each opens the panel if it is closed, and takes its large size.
    enum class Face
    {
        Shortcuts,
        Rewrite,
        Prompt,
        Image,
        Builder,
    };
    Face face() const;
    void enterPromptCommand(const QString& payload, int removeCount);
    void enterRewriteCommand(const QString& text, int removeCount);
    void enterImageCommand(const QString& payload);
    // The prompt editor takes the keyboard (once the typed command has left the target).
    void focusPromptEditor();
    // A key for the image prompt, as the tap sends it.
    void imagePromptInput(const QString& text);
    RewriteFace* rewriteFace() const { return m_rewriteFace; }
    PromptFace* promptFace() const { return m_promptFace; }
    ImageFace* imageFace() const { return m_imageFace; }
    // A builder command that waits for values: its card, in place of the rows. The keyboard
    // stays where it is until a field of the card is clicked.
    void showBuilderCommand(const tavo::CustomBuilderCommand& command);
    // What became of the generation the card asked for.
    void showBuilderStatus(const QString& status);
    BuilderShortcutCommandCard* builderCard() const { return m_builderCard; }

signals:
    void chosen(const Clip& clip);
    void editRequested(const Clip& clip);
    void deleteRequested(const Clip& clip);
    void quickAddRequested(const QString& action);
    void openTavoRequested();
    void manageRequested();
    void showHiddenOnlyChanged(bool on);
    // However it closed: whatever gave the panel the keyboard (an inline command's state in the
    // tap) ends with it.
    void closed();
    // One of its text fields took the keyboard (the tap then leaves typed keys to it and starts
    // no trigger), or lost it.
    void fieldKeyboardChanged(bool has);
    void rewritePasteRequested(const QString& text, int removeCount);
    void promptPasteRequested(const QString& text, int removeCount, const QStringList& mediaPaths);
    void promptCopyRequested(const QString& text);
    void promptMediaCopyRequested(const QStringList& mediaPaths);
    // The card's finished builder command, to be generated.
    void builderGenerateRequested(const QString& text);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void hideEvent(QHideEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    void applyTheme();
    // The size controls show the stored share and transparency, which Settings can change too.
    void syncSizeControls();
    void showTransparency(int percent);
    void fillScopeMenus();
    void showResults();
    void maybeLoadMore();
    void restart();
    void choose(const Clip& clip);
    void setRefusesFocus(bool refuses);
    void fitInto(double areaPercent);
    void showFace(QWidget* face);
    void setFieldHasKeyboard(bool has);
    bool ensureShown();

    Defaults& m_defaults;
    PickerSearch m_search;
    const DB* m_db = nullptr;
    QString m_pendingQuery;
    bool m_queryQueued = false;
    QPoint m_dragOffset;
    bool m_dragging = false;

    QLabel* m_query;
    QComboBox* m_category;
    QComboBox* m_collection;
    QCheckBox* m_showHidden;
    QCheckBox* m_hiddenOnly;
    QLabel* m_resultLine;
    QLabel* m_hint;
    QWidget* m_hiddenSwitches;
    QStackedWidget* m_body;
    PickerRows* m_rows;
    QComboBox* m_area;
    QSlider* m_transparency;
    QLabel* m_transparencyText;
    QStackedWidget* m_faces;
    QWidget* m_shortcutsFace;
    RewriteFace* m_rewriteFace;
    PromptFace* m_promptFace;
    ImageFace* m_imageFace;
    BuilderShortcutCommandCard* m_builderCard;
    bool m_fieldHasKeyboard = false;
};

} // namespace tavo
