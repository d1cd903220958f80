#include "shell/dashboard_page.h"

#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace tavo {

namespace {

struct Step
{
    QString iconName;
    QString title;
    QString sentence;
    QString action;
    QString objectName;
};

} // namespace

DashboardPage::DashboardPage(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_accounts(accounts)
    , m_defaults(defaults)
    , m_gettingStarted(new Card(QStringLiteral("Get started"), QStringLiteral("help-hint"), this))
    , m_counts(new QLabel(this))
{
    setObjectName(QStringLiteral("dashboard"));
    m_gettingStarted->setObjectName(QStringLiteral("gettingStarted"));
    m_counts->setObjectName(QStringLiteral("libraryCounts"));

    const QList<Step> steps = {
        {QStringLiteral("input-keyboard"), QStringLiteral("Expand a shortcut"),
         QStringLiteral("Type \\ty and a space in any application: Tavo replaces what you typed with the "
                        "saved text."),
         QStringLiteral("See my shortcuts"), QStringLiteral("startExpand")},
        {QStringLiteral("edit-find"), QStringLiteral("Open the picker"),
         QStringLiteral("Type \\ or / in any application to search your shortcuts, then pick one to paste it."),
         QStringLiteral("Open the picker"), QStringLiteral("startPicker")},
        {QStringLiteral("list-add"), QStringLiteral("Add a shortcut"),
         QStringLiteral("Save a phrase, a link or an image under a short key of your own."),
         QStringLiteral("New shortcut"), QStringLiteral("startNewShortcut")},
    };
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(design::step(this, 2));
    grid->setVerticalSpacing(design::step(this, 2));
    const int iconSize = fontMetrics().height() * 2;
    for (int row = 0; row < steps.size(); ++row) {
        const Step& step = steps.at(row);
        auto* icon = new QLabel(this);
        icon->setPixmap(design::icon(step.iconName).pixmap(iconSize, iconSize));
        auto* title = new QLabel(step.title, this);
        QFont bold = title->font();
        bold.setWeight(QFont::DemiBold);
        title->setFont(bold);
        auto* sentence = new QLabel(step.sentence, this);
        sentence->setWordWrap(true);
        auto* button = new QPushButton(step.action, this);
        button->setObjectName(step.objectName);
        button->setAccessibleDescription(step.sentence);
        auto* text = new QVBoxLayout;
        text->setSpacing(0);
        text->addWidget(title);
        text->addWidget(sentence);
        grid->addWidget(icon, row, 0, Qt::AlignTop);
        grid->addLayout(text, row, 1);
        grid->addWidget(button, row, 2, Qt::AlignVCenter);
        if (row == 0) {
            connect(button, &QPushButton::clicked, this,
                    [this] { emit sectionRequested(QStringLiteral("My shortcuts")); });
        } else if (row == 1) {
            connect(button, &QPushButton::clicked, this, &DashboardPage::pickerRequested);
        } else {
            connect(button, &QPushButton::clicked, this, &DashboardPage::newShortcutRequested);
        }
    }
    grid->setColumnStretch(1, 1);
    m_gettingStarted->body()->addLayout(grid);

    auto* library = new Card(QStringLiteral("Your library"), QStringLiteral("view-list-details"), this);
    auto* open = new QPushButton(QStringLiteral("Open my shortcuts"), this);
    open->setObjectName(QStringLiteral("openLibrary"));
    connect(open, &QPushButton::clicked, this, [this] { emit sectionRequested(QStringLiteral("My shortcuts")); });
    auto* libraryRow = new QHBoxLayout;
    libraryRow->addWidget(m_counts, 1);
    libraryRow->addWidget(open);
    library->body()->addLayout(libraryRow);

    auto* content = new QWidget(this);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(design::step(this, 2));
    column->addWidget(m_gettingStarted);
    column->addWidget(library);
    column->addStretch();
    auto* scroll = new QScrollArea(this);
    scroll->setAccessibleName(QStringLiteral("Dashboard"));
    scroll->setWidget(content);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setFocusPolicy(Qt::NoFocus);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(scroll);

    connect(&m_db, &DB::clipsChanged, this, &DashboardPage::refresh);
    connect(&m_db, &DB::collectionsChanged, this, &DashboardPage::refresh);
    connect(&m_defaults, &Defaults::valuesChanged, this, &DashboardPage::refresh);
    refresh();
}

bool DashboardPage::showsGettingStarted() const
{
    if (!m_accounts.isAuthenticated()) {
        return true;
    }
    const QString key = metricStorageKey(m_accounts.currentUsername(), QStringLiteral("shortcutsUsed"));
    return m_defaults.number(key).value_or(0) <= 0;
}

void DashboardPage::refresh()
{
    if (!isVisible()) {
        return; // counted again when it shows
    }
    m_gettingStarted->setVisible(showsGettingStarted());
    const qsizetype shortcuts = m_db.clips().size();
    const qsizetype collections = m_db.collections().size();
    m_counts->setText(QStringLiteral("%1 · %2").arg(
        shortcuts == 1 ? QStringLiteral("1 shortcut") : QStringLiteral("%1 shortcuts").arg(shortcuts),
        collections == 1 ? QStringLiteral("1 collection") : QStringLiteral("%1 collections").arg(collections)));
}

void DashboardPage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    refresh();
}

} // namespace tavo
