#include "shell/dashboard_page.h"

#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "store/accounts.h"
#include "store/defaults.h"
#include "store/profile_store.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>

namespace tavo {

namespace {

using design::quietLabel;

QPushButton* button(const QString& text, const QString& iconName, const QString& objectName, QWidget* parent)
{
    auto* made = new QPushButton(design::icon(iconName), text, parent);
    made->setObjectName(objectName);
    return made;
}

} // namespace

DashboardPage::DashboardPage(DB& db, TavoAccountStore& accounts, Defaults& defaults, QWidget* parent)
    : QWidget(parent)
    , m_db(db)
    , m_accounts(accounts)
    , m_defaults(defaults)
    , m_greeting(new QLabel(this))
    , m_shortcutCount(new QLabel(this))
    , m_collectionCount(new QLabel(this))
{
    setObjectName(QStringLiteral("dashboard"));
    m_greeting->setObjectName(QStringLiteral("greeting"));
    m_shortcutCount->setObjectName(QStringLiteral("shortcutCount"));
    m_collectionCount->setObjectName(QStringLiteral("collectionCount"));
    m_greeting->setFont(design::sectionHeaderFont(font()));

    auto* badge = quietLabel(ScorecardText::badge, this);
    badge->setWordWrap(false);
    QFont small = badge->font();
    small.setPointSizeF(font().pointSizeF() * 0.85);
    small.setWeight(QFont::DemiBold);
    badge->setFont(small);
    auto* counts = new QHBoxLayout;
    counts->setSpacing(design::step(this, 2));
    for (QLabel* count : {m_shortcutCount, m_collectionCount}) {
        QFont bold = count->font();
        bold.setWeight(QFont::DemiBold);
        count->setFont(bold);
        counts->addWidget(count);
    }
    counts->addStretch();
    counts->addWidget(badge);
    auto* header = new QVBoxLayout;
    header->setSpacing(0);
    header->addWidget(m_greeting);
    header->addWidget(quietLabel(ScorecardText::tagline, this));
    header->addSpacing(design::step(this));
    header->addLayout(counts);

    m_gettingStarted = buildGettingStarted();
    auto* content = new QWidget(this);
    auto* column = new QVBoxLayout(content);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(design::step(this, 2));
    column->addLayout(header);
    column->addWidget(m_gettingStarted);
    column->addWidget(buildScorecard());
    column->addWidget(buildMakeSomethingNew());
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
    connect(&m_accounts, &TavoAccountStore::isAuthenticatedChanged, this, &DashboardPage::refresh);
    refresh();
}

QWidget* DashboardPage::buildGettingStarted()
{
    struct Step
    {
        QString iconName;
        QString title;
        QString sentence;
        QString action;
        QString objectName;
    };
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
    auto* card = new Card(QStringLiteral("Get started"), QStringLiteral("help-hint"), this);
    card->setObjectName(QStringLiteral("gettingStarted"));
    auto* grid = new QGridLayout;
    grid->setHorizontalSpacing(design::step(this, 2));
    grid->setVerticalSpacing(design::step(this, 2));
    const int iconSize = fontMetrics().height() * 2;
    for (int row = 0; row < steps.size(); ++row) {
        const Step& step = steps.at(row);
        auto* icon = new QLabel(card);
        icon->setPixmap(design::icon(step.iconName).pixmap(iconSize, iconSize));
        auto* title = new QLabel(step.title, card);
        QFont bold = title->font();
        bold.setWeight(QFont::DemiBold);
        title->setFont(bold);
        auto* sentence = new QLabel(step.sentence, card);
        sentence->setWordWrap(true);
        auto* action = new QPushButton(step.action, card);
        action->setObjectName(step.objectName);
        action->setAccessibleDescription(step.sentence);
        auto* text = new QVBoxLayout;
        text->setSpacing(0);
        text->addWidget(title);
        text->addWidget(sentence);
        grid->addWidget(icon, row, 0, Qt::AlignTop);
        grid->addLayout(text, row, 1);
        grid->addWidget(action, row, 2, Qt::AlignVCenter);
        if (row == 0) {
            connect(action, &QPushButton::clicked, this,
                    [this] { emit sectionRequested(QStringLiteral("My shortcuts")); });
        } else if (row == 1) {
            connect(action, &QPushButton::clicked, this, &DashboardPage::pickerRequested);
        } else {
            connect(action, &QPushButton::clicked, this, &DashboardPage::newShortcutRequested);
        }
    }
    grid->setColumnStretch(1, 1);
    card->body()->addLayout(grid);
    return card;
}

QWidget* DashboardPage::buildScorecard()
{
    auto* card = new Card(ScorecardText::title, QStringLiteral("view-statistics"), this);
    card->setObjectName(QStringLiteral("scorecard"));
    card->body()->addWidget(
        quietLabel(ScorecardText::since + QStringLiteral(" · ") + ScorecardText::savedLocally, card));
    auto* grid = new QGridLayout;
    grid->setSpacing(design::step(this, 2));
    const QList<SpriteDashboardMetric> metrics = scorecardMetrics(ScorecardNumbers());
    constexpr int columns = 4;
    const int iconSize = fontMetrics().height() * 3 / 2;
    for (int index = 0; index < metrics.size(); ++index) {
        const SpriteDashboardMetric& metric = metrics.at(index);
        auto* tile = new QFrame(card);
        tile->setObjectName(QStringLiteral("metric"));
        tile->setFrameShape(QFrame::StyledPanel);
        tile->setAccessibleName(metric.title);
        auto* icon = new QLabel(tile);
        icon->setPixmap(design::symbolIcon(metric.symbol).pixmap(iconSize, iconSize));
        auto* value = new QLabel(metric.value, tile);
        value->setObjectName(QStringLiteral("metricValue"));
        value->setFont(design::pageTitleFont(font()));
        auto* title = new QLabel(metric.title, tile);
        QFont bold = title->font();
        bold.setWeight(QFont::DemiBold);
        title->setFont(bold);
        auto* top = new QHBoxLayout;
        top->addWidget(icon, 0, Qt::AlignTop);
        top->addStretch();
        top->addWidget(value);
        auto* inner = new QVBoxLayout(tile);
        inner->setSpacing(design::step(this) / 2);
        inner->addLayout(top);
        inner->addWidget(title);
        inner->addWidget(quietLabel(metric.detail, tile));
        inner->addStretch();
        grid->addWidget(tile, index / columns, index % columns);
        m_values << value;
    }
    for (int column = 0; column < columns; ++column) {
        grid->setColumnStretch(column, 1);
    }
    card->body()->addLayout(grid);
    card->body()->addWidget(quietLabel(ScorecardText::note, card));
    return card;
}

QWidget* DashboardPage::buildMakeSomethingNew()
{
    auto* card = new Card(ScorecardText::makeSomethingNew, QStringLiteral("list-add"), this);
    auto* newShortcut =
        button(ScorecardText::newShortcut, QStringLiteral("document-new"), QStringLiteral("newShortcut"), card);
    auto* buildCollection =
        button(ScorecardText::buildCollection, QStringLiteral("folder-new"), QStringLiteral("buildCollection"), card);
    auto* createApp =
        button(ScorecardText::createApp, QStringLiteral("applications-development"), QStringLiteral("createApp"), card);
    auto* marketplace =
        button(ScorecardText::marketplace, QStringLiteral("applications-office"), QStringLiteral("marketplace"), card);
    auto* openCollections =
        button(ScorecardText::openCollections, QStringLiteral("folder"), QStringLiteral("openCollections"), card);
    connect(newShortcut, &QPushButton::clicked, this, &DashboardPage::newShortcutRequested);
    connect(buildCollection, &QPushButton::clicked, this, &DashboardPage::buildCollectionRequested);
    connect(openCollections, &QPushButton::clicked, this,
            [this] { emit sectionRequested(QStringLiteral("Collections")); });
    // Their sections come with their own screens; until then the buttons say so rather than
    // lead to an empty page.
    for (QPushButton* later : {createApp, marketplace}) {
        later->setEnabled(false);
        later->setToolTip(QStringLiteral("Not available in this version yet"));
    }
    connect(createApp, &QPushButton::clicked, this, [this] { emit sectionRequested(QStringLiteral("AppBuilder")); });
    connect(marketplace, &QPushButton::clicked, this, [this] { emit sectionRequested(QStringLiteral("Marketplace")); });
    auto* row = new QHBoxLayout;
    for (QPushButton* each : {newShortcut, buildCollection, createApp, marketplace}) {
        row->addWidget(each);
    }
    row->addStretch();
    row->addWidget(openCollections);
    card->body()->addLayout(row);
    return card;
}

bool DashboardPage::showsGettingStarted() const
{
    return !m_accounts.isAuthenticated() ||
           storedMetric(m_defaults, m_accounts.currentUsername(), Metric::shortcutsUsed) <= 0;
}

void DashboardPage::setDuplicateCounts(qint64 extraShortcuts, qint64 extraCollections)
{
    m_duplicateShortcuts = extraShortcuts;
    m_duplicateCollections = extraCollections;
    refresh();
}

void DashboardPage::refresh()
{
    // Counters of one account never show under another: everything is read for the one signed in.
    const QString username = m_accounts.isAuthenticated() ? m_accounts.currentUsername() : QString();
    m_numbers = readScorecard(m_defaults, username);
    m_numbers.shortcutCount = m_db.isProfileActive() ? m_db.clips().size() : 0;
    m_numbers.collectionCount = m_db.isProfileActive() ? m_db.collections().size() : 0;
    m_numbers.duplicateShortcutCount = m_duplicateShortcuts;
    m_numbers.duplicateCollectionCount = m_duplicateCollections;
    if (!isVisible()) {
        return; // drawn when it shows
    }
    m_greeting->setText(ScorecardText::greeting(username));
    m_shortcutCount->setText(ScorecardText::shortcutsCount(m_numbers.shortcutCount));
    m_collectionCount->setText(ScorecardText::collectionsCount(m_numbers.collectionCount));
    m_gettingStarted->setVisible(showsGettingStarted());
    const QList<SpriteDashboardMetric> metrics = scorecardMetrics(m_numbers);
    for (int index = 0; index < metrics.size() && index < m_values.size(); ++index) {
        m_values.at(index)->setText(metrics.at(index).value);
    }
}

void DashboardPage::showEvent(QShowEvent* event)
{
    QWidget::showEvent(event);
    refresh();
}

} // namespace tavo
