#include "picker/picker_panel.h"

#include "picker/builder_card.h"
#include "picker/command_faces.h"
#include "picker/picker_geometry.h"
#include "picker/picker_rows.h"
#include "shell/ui/design.h"
#include "store/collections.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCursor>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLoggingCategory>
#include <QMenu>
#include <QMouseEvent>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QResizeEvent>
#include <QScreen>
#include <QScrollBar>
#include <QSlider>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <QWindow>

namespace tavo {

namespace {

const QString originXKey = QStringLiteral("tavoPickerOriginX");
const QString originYKey = QStringLiteral("tavoPickerOriginY");
const QString collectionKey = QStringLiteral("tavoPickerCollection");
const QString themeKey = QStringLiteral("quillTheme");
constexpr double imageModeAreaPercent = 0.25;

Q_LOGGING_CATEGORY(lcPicker, "tavo.picker", QtWarningMsg)

// The visible frame of the screen under the pointer; `standBy` when there is no screen at all.
QRect pointerScreenFrame(const QSize& standBy)
{
    if (QScreen* screen = QGuiApplication::screenAt(QCursor::pos())) {
        return screen->availableGeometry();
    }
    if (QScreen* screen = QGuiApplication::primaryScreen()) {
        return screen->availableGeometry();
    }
    return {QPoint(0, 0), standBy};
}

// Sizes come from a screen of 1200 by 800 without one, places from one of 1000 by 800.
const QSize sizingStandBy(1200, 800);
const QSize placingStandBy(1000, 800);

// Selects the entry that reads `text`, whatever its case; false when there is none.
bool selectEntry(QComboBox* menu, const QString& text)
{
    const int index = menu->findText(text, Qt::MatchFixedString);
    if (index >= 0) {
        menu->setCurrentIndex(index);
    }
    return index >= 0;
}

} // namespace

PickerPanel::PickerPanel(Defaults& defaults, QWidget* parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint | Qt::WindowDoesNotAcceptFocus)
    , m_defaults(defaults)
    , m_search(&defaults)
    , m_query(new QLabel(this))
    , m_category(new QComboBox(this))
    , m_collection(new QComboBox(this))
    , m_showHidden(new QCheckBox(QStringLiteral("Show hidden"), this))
    , m_hiddenOnly(new QCheckBox(QStringLiteral("Incognito · hidden only"), this))
    , m_resultLine(new QLabel(this))
    , m_hint(new QLabel(QStringLiteral("Keep typing in your app · exact shortcut + space expands"), this))
    , m_hiddenSwitches(new QWidget(this))
    , m_body(new QStackedWidget(this))
    , m_rows(new PickerRows(this))
    , m_area(new QComboBox(this))
    , m_transparency(new QSlider(Qt::Horizontal, this))
    , m_transparencyText(new QLabel(this))
    , m_faces(new QStackedWidget(this))
    , m_shortcutsFace(new QWidget(m_faces))
    , m_rewriteFace(new RewriteFace(defaults, m_faces))
    , m_promptFace(new PromptFace(defaults, m_faces))
    , m_imageFace(new ImageFace(defaults, m_faces))
    , m_builderCard(new BuilderShortcutCommandCard(m_faces))
{
    // Never the active window: the application in front keeps the keyboard and the trigger.
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFocusPolicy(Qt::NoFocus);
    setObjectName(QStringLiteral("picker"));
    setWindowTitle(QStringLiteral("Tavo picker"));
    m_rows->setObjectName(QStringLiteral("pickerRows"));
    m_rows->setFocusPolicy(Qt::NoFocus);
    design::name(m_rows, QStringLiteral("Shortcuts"));
    m_search.collection = m_defaults.string(collectionKey).value_or(allCollectionsName);
    m_showHidden->setChecked(m_search.showHiddenCollections());
    m_showHidden->setToolTip(QStringLiteral("Include hidden collections alongside visible shortcuts"));
    design::name(m_showHidden, m_showHidden->text());
    m_hiddenOnly->setToolTip(QStringLiteral("Show only shortcuts assigned to hidden collections"));
    design::name(m_hiddenOnly, m_hiddenOnly->text());
    design::name(m_category, QStringLiteral("Category"));
    design::name(m_collection, QStringLiteral("Collection"));
    m_query->setText(QStringLiteral("Search shortcuts…"));
    m_query->setToolTip(QStringLiteral("Type to search shortcuts · Drag the background to move this popup"));

    auto* title = new QLabel(QStringLiteral("<b>Tavo · choose a shortcut</b>"), this);
    auto* hint = m_hint;
    auto* home = new QPushButton(QStringLiteral("Reset"), this);
    home->setToolTip(QStringLiteral("Move popup to its default position · drag this header to place it"));
    design::name(home, QStringLiteral("Move popup to its default position"));
    auto* open = new QPushButton(QStringLiteral("Open Tavo"), this);
    design::name(open, open->text());
    auto* manage = new QPushButton(QStringLiteral("Manage all shortcuts"), this);
    design::name(manage, manage->text());
    connect(manage, &QPushButton::clicked, this, [this] {
        hidePanel();
        emit manageRequested();
    });
    auto* area = m_area;
    design::name(area, QStringLiteral("Select area"));
    connect(area, &QComboBox::currentIndexChanged, this, [this, area] {
        m_defaults.setNumber(pickerAreaKey, area->currentData().toDouble());
        resizePopup();
    });
    auto* transparency = m_transparency;
    transparency->setRange(0, maximumPickerTransparencyPercent);
    design::name(transparency, QStringLiteral("Transparency"));
    auto* transparencyText = m_transparencyText;
    connect(transparency, &QSlider::valueChanged, this, [this](int percent) {
        m_defaults.setNumber(pickerTransparencyKey, percent / 100.0);
        showTransparency(percent);
    });
    syncSizeControls();
    auto* resize = new QPushButton(QStringLiteral("Size"), this);
    design::name(resize, QStringLiteral("Resize popup"));
    resize->setCheckable(true);
    auto* close = new QPushButton(QStringLiteral("✕"), this);
    close->setMaximumWidth(close->fontMetrics().height() * 2);
    design::name(close, QStringLiteral("Close popup"));
    for (QWidget* button : std::initializer_list<QWidget*>{home, resize, open, manage, close, area, transparency,
                                                           m_category, m_collection, m_showHidden, m_hiddenOnly}) {
        button->setFocusPolicy(Qt::NoFocus);
    }
    connect(home, &QPushButton::clicked, this, &PickerPanel::resetPosition);
    connect(open, &QPushButton::clicked, this, [this] {
        hidePanel();
        emit openTavoRequested();
    });
    connect(close, &QPushButton::clicked, this, &PickerPanel::hidePanel);

    auto* empty = new QWidget(this);
    auto* emptyLayout = new QVBoxLayout(empty);
    emptyLayout->addWidget(new QLabel(QStringLiteral("Create a shortcut or import many"), empty));
    auto* quickAdd = new QHBoxLayout;
    for (const QString& action : {QStringLiteral("New shortcut"), QStringLiteral("From clipboard"),
                                  QStringLiteral("Paste many"), QStringLiteral("Bulk media")}) {
        auto* button = new QPushButton(action, empty);
        design::name(button, action);
        button->setFocusPolicy(Qt::NoFocus);
        connect(button, &QPushButton::clicked, this, [this, action] {
            hidePanel();
            emit quickAddRequested(action);
        });
        quickAdd->addWidget(button);
    }
    emptyLayout->addLayout(quickAdd);
    emptyLayout->addStretch();
    m_body->addWidget(m_rows);
    m_body->addWidget(empty);

    // Every row gives way to the size the screen share allows: labels clip, menus shorten, and
    // the rows take what height is left.
    title->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    hint->setWordWrap(true);
    for (QComboBox* menu : {m_category, m_collection}) {
        menu->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
        menu->setMinimumContentsLength(8);
    }
    auto* header = new QHBoxLayout;
    header->addWidget(title, 1);
    header->addWidget(home);
    header->addWidget(resize);
    header->addWidget(close);
    auto* scope = new QHBoxLayout;
    scope->addWidget(m_category, 1);
    scope->addWidget(m_collection, 1);
    auto* hidden = new QHBoxLayout(m_hiddenSwitches);
    hidden->setContentsMargins(0, 0, 0, 0);
    m_showHidden->setParent(m_hiddenSwitches);
    m_hiddenOnly->setParent(m_hiddenSwitches);
    hidden->addWidget(m_showHidden);
    hidden->addWidget(m_hiddenOnly);
    hidden->addStretch();
    auto* footer = new QHBoxLayout;
    footer->addWidget(manage);
    footer->addWidget(open);
    footer->addStretch();
    // The size controls show on demand: most openings only want the rows.
    auto* sizeRow = new QWidget(this);
    auto* size = new QHBoxLayout(sizeRow);
    size->setContentsMargins(0, 0, 0, 0);
    area->setParent(sizeRow);
    transparency->setParent(sizeRow);
    transparencyText->setParent(sizeRow);
    size->addWidget(area);
    size->addWidget(new QLabel(QStringLiteral("Transparency"), sizeRow));
    size->addWidget(transparency, 1);
    size->addWidget(transparencyText);
    sizeRow->setVisible(false);
    connect(resize, &QPushButton::toggled, sizeRow, &QWidget::setVisible);
    auto* outer = new QVBoxLayout(this);
    outer->setSizeConstraint(QLayout::SetNoConstraint); // the window's size is the screen share's
    outer->setContentsMargins(8, 6, 8, 6);
    outer->addWidget(m_faces);
    m_faces->addWidget(m_shortcutsFace);
    m_faces->addWidget(m_rewriteFace);
    m_faces->addWidget(m_promptFace);
    m_faces->addWidget(m_imageFace);
    m_faces->addWidget(m_builderCard);
    auto* layout = new QVBoxLayout(m_shortcutsFace);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(4);
    layout->addLayout(header);
    layout->addWidget(hint);
    layout->addWidget(m_query);
    layout->addLayout(scope);
    layout->addWidget(m_hiddenSwitches);
    layout->addWidget(m_resultLine);
    layout->addWidget(m_body, 1);
    layout->addLayout(footer); // below the rows: the first row stays where the eye expects it
    layout->addWidget(sizeRow);

    connect(m_rewriteFace, &RewriteFace::closeRequested, this, &PickerPanel::hidePanel);
    connect(m_promptFace, &PromptFace::closeRequested, this, &PickerPanel::hidePanel);
    connect(m_imageFace, &ImageFace::closeRequested, this, &PickerPanel::hidePanel);
    connect(m_rewriteFace, &RewriteFace::fieldWanted, this, &PickerPanel::focusTextField);
    connect(m_promptFace, &PromptFace::fieldWanted, this, &PickerPanel::focusTextField);
    connect(m_imageFace, &ImageFace::fieldWanted, this, &PickerPanel::focusTextField);
    connect(m_builderCard, &BuilderShortcutCommandCard::closeRequested, this, &PickerPanel::hidePanel);
    connect(m_builderCard, &BuilderShortcutCommandCard::fieldWanted, this, &PickerPanel::focusTextField);
    connect(m_builderCard, &BuilderShortcutCommandCard::generateRequested, this,
            &PickerPanel::builderGenerateRequested);
    connect(m_rewriteFace, &RewriteFace::pasteRequested, this, &PickerPanel::rewritePasteRequested);
    connect(m_promptFace, &PromptFace::pasteRequested, this, &PickerPanel::promptPasteRequested);
    connect(m_promptFace, &PromptFace::copyRequested, this, &PickerPanel::promptCopyRequested);
    connect(m_promptFace, &PromptFace::mediaCopyRequested, this, &PickerPanel::promptMediaCopyRequested);
    connect(&m_search, &PickerSearch::resultsChanged, this, &PickerPanel::showResults);
    connect(&m_search, &PickerSearch::stateChanged, this, [this] {
        showResults();
        if (!m_search.isLoading() && (m_search.isExhausted() || !m_search.results().isEmpty())) {
            qCInfo(lcPicker).noquote() << "picker shows" << m_search.results().size() << "results for"
                                       << QStringLiteral("\"%1\"").arg(m_search.value);
        }
    });
    connect(m_rows, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
        const int row = m_rows->row(item);
        if (row >= 0 && row < m_search.results().size()) {
            choose(m_search.results().at(row));
        }
    });
    m_rows->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_rows, &QListWidget::customContextMenuRequested, this, [this](const QPoint& at) {
        const int row = m_rows->row(m_rows->itemAt(at));
        if (row < 0 || row >= m_search.results().size()) {
            return;
        }
        const Clip clip = m_search.results().at(row);
        QMenu menu;
        menu.addAction(QStringLiteral("Paste into current app"), this, [this, clip] { choose(clip); });
        // A collection record's row is made for the list; it is edited among its collection's records.
        const bool stored = m_db && std::any_of(m_db->clips().cbegin(), m_db->clips().cend(),
                                                [&](const Clip& each) { return each.id == clip.id; });
        if (stored) {
            menu.addAction(QStringLiteral("Edit"), this, [this, clip] { emit editRequested(clip); });
            menu.addAction(QStringLiteral("Delete"), this, [this, clip] { emit deleteRequested(clip); });
        }
        menu.exec(m_rows->viewport()->mapToGlobal(at));
    });
    connect(m_rows->verticalScrollBar(), &QScrollBar::valueChanged, this, &PickerPanel::maybeLoadMore);
    // A larger popup can bring the last row into sight without a scroll.
    connect(m_rows->verticalScrollBar(), &QScrollBar::rangeChanged, this, &PickerPanel::maybeLoadMore);
    connect(m_category, &QComboBox::currentTextChanged, this, [this](const QString& text) {
        m_search.category = text.isEmpty() ? allCategoriesName : text;
        restart();
    });
    connect(m_collection, &QComboBox::currentTextChanged, this, [this](const QString& text) {
        m_search.collection = text.isEmpty() ? allCollectionsName : text;
        m_defaults.setString(collectionKey, m_search.collection);
        restart();
    });
    connect(m_showHidden, &QCheckBox::toggled, this, [this](bool on) {
        m_search.setShowHiddenCollections(on);
        if (m_db) {
            fillScopeMenus();
        }
        restart();
    });
    connect(m_hiddenOnly, &QCheckBox::toggled, this, [this](bool on) {
        m_search.showHiddenOnly = on;
        restart();
        emit showHiddenOnlyChanged(on);
    });
}

void PickerPanel::applyTheme()
{
    const QString theme = m_defaults.string(themeKey).value_or(QStringLiteral("Light"));
    QPalette palette = QGuiApplication::palette();
    if (theme == QLatin1String("Dark")) {
        palette.setColor(QPalette::Window, QColor(0x26, 0x28, 0x2c));
        palette.setColor(QPalette::Base, QColor(0x1e, 0x20, 0x23));
        palette.setColor(QPalette::AlternateBase, QColor(0x2c, 0x2f, 0x34));
        palette.setColor(QPalette::Button, QColor(0x33, 0x36, 0x3b));
        for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
            palette.setColor(role, QColor(0xec, 0xee, 0xf1));
        }
        palette.setColor(QPalette::Highlight, QColor(0x3d, 0x7e, 0xd6));
    } else if (theme == QLatin1String("Light")) {
        palette.setColor(QPalette::Window, QColor(0xf7, 0xf7, 0xf8));
        palette.setColor(QPalette::Base, Qt::white);
        for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
            palette.setColor(role, QColor(0x1d, 0x1f, 0x22));
        }
    }
    setPalette(palette);
}

void PickerPanel::fillScopeMenus()
{
    const QStringList visible = m_search.showHiddenCollections() ? m_db->collections() : m_db->visibleCollections();
    const QSignalBlocker collectionBlocker(m_collection);
    const QSignalBlocker categoryBlocker(m_category);
    m_collection->clear();
    m_collection->addItem(allCollectionsName);
    m_collection->addItems(visible);
    // A remembered collection or category that is no longer shown gives way to all of them.
    if (!selectEntry(m_collection, m_search.collection)) {
        m_search.collection = allCollectionsName;
        m_collection->setCurrentIndex(0);
        m_defaults.setString(collectionKey, m_search.collection);
    }
    m_search.collection = m_collection->currentText();
    m_category->clear();
    m_category->addItem(allCategoriesName);
    m_category->addItems(categoriesOf(visible, m_db->collectionDefinitions()));
    if (!selectEntry(m_category, m_search.category)) {
        m_category->setCurrentIndex(0);
    }
    m_search.category = m_category->currentText();
}

void PickerPanel::showFor(const DB& db)
{
    if (m_db != &db) {
        if (m_db) {
            disconnect(m_db, nullptr, this, nullptr);
        }
        // A change of the library while the panel is open shows at once.
        connect(&db, &DB::clipsChanged, this, &PickerPanel::restart);
        connect(&db, &DB::collectionRecordsChanged, this, &PickerPanel::restart);
        for (const auto change :
             {&DB::hiddenCollectionsChanged, &DB::collectionsChanged, &DB::collectionDefinitionsChanged}) {
            connect(&db, change, this, [this] {
                if (m_db && isVisible()) {
                    fillScopeMenus();
                    restart();
                }
            });
        }
        connect(&db, &DB::destroyed, this, [this] { m_db = nullptr; });
    }
    m_db = &db;
    applyTheme();
    syncSizeControls(); // Settings may have changed them since the last opening
    fillScopeMenus();

    const QSizeF size = pickerPopupSize(pointerScreenFrame(sizingStandBy).size(),
                                        m_defaults.number(pickerAreaKey).value_or(defaultPickerAreaPercent));
    const QRect frame = pointerScreenFrame(placingStandBy);
    std::optional<QPointF> stored;
    if (const auto x = m_defaults.number(originXKey), y = m_defaults.number(originYKey); x && y) {
        stored = QPointF(*x, *y);
    }
    resize(size.toSize());
    move(pickerOrigin(frame, size, stored).toPoint());
    m_search.value.clear();
    m_query->setText(QStringLiteral("Search shortcuts…"));
    showFace(m_shortcutsFace);
    show();
    raise();
    restart();
}

void PickerPanel::syncSizeControls()
{
    const double share = m_defaults.number(pickerAreaKey).value_or(defaultPickerAreaPercent);
    const QList<int> percents = pickerAreaPercents(share);
    {
        const QSignalBlocker blocker(m_area);
        m_area->clear();
        for (const int percent : percents) {
            m_area->addItem(QStringLiteral("%1% of screen").arg(percent), percent / 100.0);
        }
        m_area->setCurrentIndex(int(percents.indexOf(qRound(qBound(0.08, share, 0.25) * 100))));
    }
    const int percent = qRound(m_defaults.number(pickerTransparencyKey).value_or(defaultPickerTransparency) * 100);
    {
        const QSignalBlocker blocker(m_transparency);
        m_transparency->setValue(percent);
    }
    showTransparency(m_transparency->value());
}

void PickerPanel::showTransparency(int percent)
{
    m_transparencyText->setText(QStringLiteral("%1%").arg(percent));
    setWindowOpacity(1.0 - percent / 100.0);
}

void PickerPanel::hidePanel()
{
    m_queryQueued = false;
    hide();
    m_search.value.clear();
}

void PickerPanel::resizeEvent(QResizeEvent* event)
{
    // A small share of the screen keeps what finding a row needs: the hint goes first, then the
    // hidden switches.
    m_hint->setVisible(event->size().height() >= 320);
    m_hiddenSwitches->setVisible(event->size().height() >= 240);
    QWidget::resizeEvent(event);
}

void PickerPanel::hideEvent(QHideEvent* event)
{
    // However it closes (here, or by the window manager), the next opening leaves the keyboard
    // where it is, and a request of a command face stops.
    setRefusesFocus(true);
    setFieldHasKeyboard(false);
    showFace(m_shortcutsFace);
    QWidget::hideEvent(event);
    emit closed();
}

bool PickerPanel::refusesFocus() const
{
    return windowFlags().testFlag(Qt::WindowDoesNotAcceptFocus);
}

void PickerPanel::setRefusesFocus(bool refuses)
{
    if (refuses == refusesFocus()) {
        return;
    }
    // Through the window's handle: setWindowFlags() would make a new window, which would blink
    // and lose its place.
    Qt::WindowFlags flags = windowFlags();
    flags.setFlag(Qt::WindowDoesNotAcceptFocus, refuses);
    overrideWindowFlags(flags);
    if (QWindow* handle = windowHandle()) {
        handle->setFlags(flags);
    }
    setAttribute(Qt::WA_ShowWithoutActivating, refuses);
}

void PickerPanel::focusTextField(QWidget* field)
{
    if (!isVisible() || !isAncestorOf(field)) {
        return;
    }
    setRefusesFocus(false);
    field->setFocusPolicy(Qt::StrongFocus);
    activateWindow();
    field->setFocus(Qt::OtherFocusReason);
    setFieldHasKeyboard(true);
}

void PickerPanel::setFieldHasKeyboard(bool has)
{
    if (has != m_fieldHasKeyboard) {
        m_fieldHasKeyboard = has;
        emit fieldKeyboardChanged(has);
    }
}

void PickerPanel::changeEvent(QEvent* event)
{
    // A click into another application takes the keyboard back: triggers work there again.
    if (event->type() == QEvent::ActivationChange && m_fieldHasKeyboard && !isActiveWindow()) {
        setFieldHasKeyboard(false);
    }
    QWidget::changeEvent(event);
}

void PickerPanel::keyPressEvent(QKeyEvent* event)
{
    // With a field's keyboard the tap leaves Escape to the panel; it closes as it would there.
    if (event->key() == Qt::Key_Escape) {
        hidePanel();
        return;
    }
    QWidget::keyPressEvent(event);
}

PickerPanel::Face PickerPanel::face() const
{
    QWidget* current = m_faces->currentWidget();
    if (current == m_rewriteFace) {
        return Face::Rewrite;
    }
    if (current == m_promptFace) {
        return Face::Prompt;
    }
    if (current == m_imageFace) {
        return Face::Image;
    }
    if (current == m_builderCard) {
        return Face::Builder;
    }
    return Face::Shortcuts;
}

void PickerPanel::showFace(QWidget* face)
{
    if (face == m_faces->currentWidget()) {
        return;
    }
    // Leaving a command face forgets its text and stops its request.
    m_rewriteFace->reset();
    m_promptFace->reset();
    m_imageFace->reset();
    m_builderCard->reset();
    m_faces->setCurrentWidget(face);
}

bool PickerPanel::ensureShown()
{
    if (!isVisible()) {
        if (!m_db) {
            return false;
        }
        showFor(*m_db);
    }
    return true;
}

void PickerPanel::enterPromptCommand(const QString& payload, int removeCount)
{
    if (!ensureShown()) {
        return;
    }
    m_queryQueued = false;
    showFace(m_promptFace);
    m_promptFace->enter(payload, removeCount, m_db);
    resizeForImageMode(true);
}

void PickerPanel::enterRewriteCommand(const QString& text, int removeCount)
{
    if (!ensureShown()) {
        return;
    }
    m_queryQueued = false;
    showFace(m_rewriteFace);
    m_rewriteFace->enter(text, removeCount);
    resizeForImageMode(true);
}

void PickerPanel::enterImageCommand(const QString& payload)
{
    if (!ensureShown()) {
        return;
    }
    m_queryQueued = false;
    showFace(m_imageFace);
    m_imageFace->enter(payload, m_db);
    resizeForImageMode(true);
}

void PickerPanel::showBuilderCommand(const CustomBuilderCommand& command)
{
    if (!ensureShown()) {
        return;
    }
    m_queryQueued = false; // the typed command's last queries are behind it
    showFace(m_builderCard);
    m_builderCard->setCommand(command, m_db);
    qCInfo(lcPicker).noquote() << "picker shows the builder card of" << command.app;
}

void PickerPanel::showBuilderStatus(const QString& status)
{
    if (isVisible() && face() == Face::Builder) {
        m_builderCard->showStatus(status);
    }
}

void PickerPanel::focusPromptEditor()
{
    if (face() == Face::Prompt) {
        focusTextField(m_promptFace->editor());
    }
}

void PickerPanel::imagePromptInput(const QString& text)
{
    if (isVisible() && face() == Face::Image) {
        m_imageFace->input(text);
    }
}

void PickerPanel::setQuery(const QString& text)
{
    m_pendingQuery = text;
    if (m_queryQueued) {
        return; // the queued update will take the newest text
    }
    m_queryQueued = true;
    QTimer::singleShot(0, this, [this] {
        if (!m_queryQueued || face() != Face::Shortcuts) {
            return; // closed meanwhile
        }
        m_queryQueued = false;
        m_search.value = m_pendingQuery;
        m_query->setText(m_pendingQuery.isEmpty() ? QStringLiteral("Search shortcuts…") : m_pendingQuery);
        restart();
    });
}

void PickerPanel::chooseFirst()
{
    if (isVisible() && face() == Face::Rewrite) {
        m_rewriteFace->paste(); // Return takes what the face shows, not a row out of sight
        return;
    }
    if (isVisible() && face() == Face::Shortcuts && !m_search.results().isEmpty()) {
        choose(m_search.results().first());
    }
}

void PickerPanel::choose(const Clip& clip)
{
    const Clip chosenClip = clip; // the results go with the panel
    hidePanel();
    emit chosen(chosenClip);
}

void PickerPanel::resetPosition()
{
    move(pickerOrigin(pointerScreenFrame(placingStandBy), size(), std::nullopt).toPoint());
    m_defaults.setNumber(originXKey, x());
    m_defaults.setNumber(originYKey, y());
}

void PickerPanel::resizePopup()
{
    fitInto(m_defaults.number(pickerAreaKey).value_or(defaultPickerAreaPercent));
}

void PickerPanel::resizeForImageMode(bool large)
{
    fitInto(large ? imageModeAreaPercent : m_defaults.number(pickerAreaKey).value_or(defaultPickerAreaPercent));
}

void PickerPanel::fitInto(double areaPercent)
{
    // On the screen the panel stands on, from the same top-left corner, and still on it.
    const QRect frame = isVisible() && screen() ? screen()->availableGeometry() : pointerScreenFrame(sizingStandBy);
    const QSizeF size = pickerPopupSize(frame.size(), areaPercent);
    resize(size.toSize());
    move(pickerOrigin(frame, size, QPointF(pos())).toPoint());
}

void PickerPanel::restart()
{
    if (m_db && isVisible()) {
        m_search.restart(*m_db);
    }
}

void PickerPanel::showResults()
{
    const QList<Clip>& results = m_search.results();
    m_rows->showClips(results);
    const QString count = QStringLiteral("%1 results").arg(results.size());
    m_resultLine->setText(m_search.isLoading() ? count + QStringLiteral(" · searching in small batches…") : count);
    const bool nothing = results.isEmpty() && m_search.isExhausted() && m_search.value.trimmed().isEmpty();
    m_body->setCurrentIndex(nothing ? 1 : 0);
    maybeLoadMore();
}

void PickerPanel::maybeLoadMore()
{
    // More when the last row is in sight: the list does not fill its height, or it is scrolled
    // to the end.
    if (!m_db || m_search.isLoading() || m_search.isExhausted()) {
        return;
    }
    QScrollBar* bar = m_rows->verticalScrollBar();
    if (bar->maximum() == 0 || bar->value() >= bar->maximum()) {
        QTimer::singleShot(0, this, [this] {
            if (m_db && isVisible()) {
                m_search.loadMore(*m_db);
            }
        });
    }
}

void PickerPanel::mousePressEvent(QMouseEvent* event)
{
    if (event->button() == Qt::LeftButton) {
        m_dragging = true;
        m_dragOffset = event->globalPosition().toPoint() - frameGeometry().topLeft();
    }
}

void PickerPanel::mouseMoveEvent(QMouseEvent* event)
{
    if (m_dragging) {
        move(event->globalPosition().toPoint() - m_dragOffset);
    }
}

void PickerPanel::mouseReleaseEvent(QMouseEvent* event)
{
    Q_UNUSED(event)
    if (m_dragging) {
        m_dragging = false;
        m_defaults.setNumber(originXKey, x());
        m_defaults.setNumber(originYKey, y());
    }
}

} // namespace tavo
