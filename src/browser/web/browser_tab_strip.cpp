#include "browser/web/browser_tab_strip.h"

#include "browser/browser_tabs.h"
#include "shell/ui/design.h"

#include <QFrame>
#include <QHBoxLayout>
#include <QInputDialog>
#include <QMenu>
#include <QScrollArea>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavo {

namespace {
constexpr int tabTitleWidth = 160;
}

BrowserTabStrip::BrowserTabStrip(TavoBrowserTabs& state, QWidget* parent)
    : QWidget(parent)
    , m_state(state)
    , m_row(new QHBoxLayout)
{
    design::name(this, QStringLiteral("Tabs"));
    const int gap = design::step(this);
    auto* scroll = new QScrollArea(this);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setWidgetResizable(true);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    scroll->setFocusPolicy(Qt::NoFocus); // the tabs themselves take the focus
    design::name(scroll, QStringLiteral("Open tabs"));
    auto* row = new QWidget(scroll);
    row->setLayout(m_row);
    m_row->setContentsMargins(0, 0, 0, 0);
    m_row->setSpacing(gap / 2);
    scroll->setWidget(row);

    auto* add = new QToolButton(this);
    add->setIcon(design::icon(QStringLiteral("tab-new")));
    add->setAutoRaise(true);
    design::name(add, QStringLiteral("New tab"));
    connect(add, &QToolButton::clicked, this, [this] { m_state.newTab(homeURL); });

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(gap, gap / 2, gap, 0);
    layout->setSpacing(gap);
    layout->addWidget(scroll, 1);
    layout->addWidget(add);

    for (auto signal : {&TavoBrowserTabs::tabsChanged, &TavoBrowserTabs::tabGroupsChanged,
                        &TavoBrowserTabs::collapsedTabGroupsChanged, &TavoBrowserTabs::selectedIDChanged}) {
        connect(&m_state, signal, this, &BrowserTabStrip::scheduleRebuild);
    }
    // One row of tabs: as tall as a tab with its icon, and a scroll bar when they overflow.
    QToolButton probe;
    probe.setIcon(design::icon(QStringLiteral("go-home")));
    probe.setText(QStringLiteral("Home"));
    probe.setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    scroll->setFixedHeight(probe.sizeHint().height() + gap);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    rebuild();
}

QColor BrowserTabStrip::groupColor(const QString& group)
{
    switch (tabGroupColor(group)) {
    case TabGroupColor::Purple:
        return QColor(0x9b, 0x59, 0xd0);
    case TabGroupColor::Blue:
        return QColor(0x3d, 0x7f, 0xe0);
    case TabGroupColor::Green:
        return QColor(0x2e, 0xa0, 0x5a);
    case TabGroupColor::Orange:
        return QColor(0xe6, 0x7e, 0x22);
    case TabGroupColor::Pink:
        return QColor(0xe0, 0x4f, 0x9a);
    case TabGroupColor::Teal:
        return QColor(0x1a, 0xa3, 0xa3);
    }
    return {};
}

void BrowserTabStrip::scheduleRebuild()
{
    // One operation changes several properties; the strip is drawn once for all of them.
    if (!m_rebuildScheduled) {
        m_rebuildScheduled = true;
        QTimer::singleShot(0, this, &BrowserTabStrip::rebuild);
    }
}

void BrowserTabStrip::rebuild()
{
    m_rebuildScheduled = false;
    while (QLayoutItem* item = m_row->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    const QMap<QString, QString>& groups = m_state.tabGroups();
    for (const QString& group : m_state.orderedGroups()) {
        QList<TavoBrowserTab> members;
        for (const TavoBrowserTab& tab : m_state.tabs()) {
            if (groups.value(tab.id) == group) {
                members.append(tab);
            }
        }
        if (!group.isEmpty()) {
            m_row->addWidget(makeGroupChip(group, int(members.size())));
            if (m_state.collapsedTabGroups().contains(group)) {
                continue;
            }
        }
        for (const TavoBrowserTab& tab : members) {
            m_row->addWidget(makeTab(tab.id, tab.title, tab.url, group));
        }
    }
    m_row->addStretch(1);
}

QWidget* BrowserTabStrip::makeGroupChip(const QString& group, int count)
{
    auto* chip = new QToolButton;
    const bool collapsed = m_state.collapsedTabGroups().contains(group);
    chip->setText(collapsed ? QStringLiteral("%1 (%2)").arg(group).arg(count) : group);
    const QColor colour = groupColor(group);
    chip->setStyleSheet(
        QStringLiteral(
            "QToolButton { background: %1; color: white; border-radius: 6px; padding: 2px 8px; font-weight: bold; }")
            .arg(colour.name()));
    design::name(chip, (collapsed ? QStringLiteral("Expand group ") : QStringLiteral("Collapse group ")) + group);
    connect(chip, &QToolButton::clicked, this, [this, group] { m_state.toggleGroup(group); });
    chip->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(chip, &QWidget::customContextMenuRequested, this, [this, chip, group](const QPoint& at) {
        QMenu menu;
        menu.addAction(QStringLiteral("Rename group…"), this, [this, group] { askToRename(group); });
        menu.addAction(QStringLiteral("Ungroup tabs"), this, [this, group] { m_state.ungroup(group); });
        menu.exec(chip->mapToGlobal(at));
    });
    return chip;
}

QWidget* BrowserTabStrip::makeTab(const QString& id, const QString& title, const QString& url, const QString& group)
{
    auto* tab = new QWidget;
    auto* column = new QVBoxLayout(tab);
    column->setContentsMargins(0, 0, 0, 0);
    column->setSpacing(1);
    auto* layout = new QHBoxLayout;
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    column->addLayout(layout);
    // A tab of a group is underlined in the group's colour.
    auto* mark = new QFrame(tab);
    mark->setFixedHeight(3);
    if (!group.isEmpty()) {
        mark->setAutoFillBackground(true);
        QPalette colour = mark->palette();
        colour.setColor(QPalette::Window, groupColor(group));
        mark->setPalette(colour);
    }
    column->addWidget(mark);
    auto* select = new QToolButton(tab);
    const QString shown = title.isEmpty() ? QStringLiteral("New tab") : title;
    select->setText(fontMetrics().elidedText(shown, Qt::ElideRight, tabTitleWidth));
    select->setIcon(design::icon(url == homeURL ? QStringLiteral("go-home") : QStringLiteral("text-html")));
    select->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    select->setCheckable(true);
    select->setChecked(id == m_state.selectedID());
    select->setAutoRaise(id != m_state.selectedID());
    design::name(select, shown);
    connect(select, &QToolButton::clicked, this, [this, id] { m_state.select(id); });
    select->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(select, &QWidget::customContextMenuRequested, this, [this, select, id, group](const QPoint& at) {
        QMenu menu;
        menu.addAction(QStringLiteral("Add to group…"), this, [this, id] { askForGroup(id); });
        if (!group.isEmpty()) {
            menu.addAction(QStringLiteral("Remove from group"), this,
                           [this, id] { m_state.assignGroup(id, std::nullopt); });
        }
        if (id != homeTabID) {
            menu.addAction(QStringLiteral("Close tab"), this, [this, id] { m_state.close(id); });
        }
        menu.exec(select->mapToGlobal(at));
    });
    layout->addWidget(select);
    if (id != homeTabID) {
        auto* close = new QToolButton(tab);
        close->setIcon(design::icon(QStringLiteral("window-close")));
        close->setAutoRaise(true);
        design::name(close, QStringLiteral("Close ") + shown);
        connect(close, &QToolButton::clicked, this, [this, id] { m_state.close(id); });
        layout->addWidget(close);
    }
    return tab;
}

void BrowserTabStrip::askForGroup(const QString& tabID)
{
    bool ok = false;
    const QString name = QInputDialog::getText(this, QStringLiteral("Add to group"), QStringLiteral("Group name"),
                                               QLineEdit::Normal, m_state.tabGroups().value(tabID), &ok)
                             .trimmed();
    if (ok) {
        m_state.assignGroup(tabID, name.isEmpty() ? std::nullopt : std::optional<QString>(name));
    }
}

void BrowserTabStrip::askToRename(const QString& group)
{
    bool ok = false;
    const QString name = QInputDialog::getText(this, QStringLiteral("Rename group"), QStringLiteral("Group name"),
                                               QLineEdit::Normal, group, &ok);
    if (ok) {
        m_state.renameGroup(group, name);
    }
}

} // namespace tavo
