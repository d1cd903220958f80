#include "shell/side_menu.h"

#include "shell/ui/design.h"

#include <QHBoxLayout>
#include <QListWidget>
#include <QScrollBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace tavo {

namespace {

constexpr int sectionRole = Qt::UserRole;

} // namespace

SideMenu::SideMenu(const QList<Entry>& entries, QWidget* parent)
    : QWidget(parent)
    , m_list(new QListWidget(this))
    , m_collapse(new QToolButton(this))
    , m_hide(new QToolButton(this))
    , m_tools(new QHBoxLayout)
{
    setObjectName(QStringLiteral("sideMenuPanel"));
    m_list->setObjectName(QStringLiteral("sideMenu"));
    m_list->setAccessibleName(QStringLiteral("Sections"));
    m_list->setFrameShape(QFrame::NoFrame);
    m_list->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_list->setTextElideMode(Qt::ElideNone);
    m_list->setIconSize(QSize(fontMetrics().height(), fontMetrics().height()));
    m_list->setSpacing(design::step(this) / 3);
    // The menu sits on the window's colour, like a sidebar, not on the white of a list.
    m_list->viewport()->setAutoFillBackground(false);
    m_list->setAutoFillBackground(false);

    QFont headerFont = font();
    headerFont.setPointSizeF(font().pointSizeF() * 0.85);
    headerFont.setWeight(QFont::DemiBold);
    QString group;
    for (const Entry& entry : entries) {
        if (entry.group != group) {
            group = entry.group;
            auto* header = new QListWidgetItem(group.toUpper(), m_list);
            header->setFlags(Qt::NoItemFlags);
            header->setFont(headerFont);
            header->setForeground(design::secondaryText(palette()));
            header->setData(Qt::AccessibleTextRole, group);
        }
        auto* item = new QListWidgetItem(design::icon(entry.iconName), entry.section, m_list);
        item->setData(sectionRole, entry.section);
        item->setData(Qt::AccessibleTextRole, entry.section);
        item->setToolTip(entry.section);
    }
    connect(m_list, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* item) {
        if (item && !item->data(sectionRole).toString().isEmpty()) {
            emit sectionChosen(item->data(sectionRole).toString());
        }
    });

    m_collapse->setObjectName(QStringLiteral("hideMenuLabels"));
    m_collapse->setCheckable(true);
    m_collapse->setAutoRaise(true);
    m_collapse->setIcon(design::icon(QStringLiteral("sidebar-collapse")));
    design::name(m_collapse, QStringLiteral("Hide menu labels"));
    connect(m_collapse, &QToolButton::toggled, this, [this](bool on) {
        setLabelsHidden(on);
        emit labelsHiddenToggled(on);
    });
    m_hide->setObjectName(QStringLiteral("hideMenu"));
    m_hide->setAutoRaise(true);
    m_hide->setIcon(design::icon(QStringLiteral("view-left-close")));
    design::name(m_hide, QStringLiteral("Hide left menu completely"));
    connect(m_hide, &QToolButton::clicked, this, &SideMenu::hideRequested);

    m_tools->setContentsMargins(0, 0, 0, 0);
    m_tools->addWidget(m_collapse);
    m_tools->addWidget(m_hide);
    m_tools->addStretch();
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(design::step(this));
    layout->addWidget(m_list, 1);
    layout->addLayout(m_tools);
    fitWidth();
}

QStringList SideMenu::sections() const
{
    QStringList sections;
    for (int row = 0; row < m_list->count(); ++row) {
        const QString section = m_list->item(row)->data(sectionRole).toString();
        if (!section.isEmpty()) {
            sections << section;
        }
    }
    return sections;
}

void SideMenu::setCurrentSection(const QString& section)
{
    for (int row = 0; row < m_list->count(); ++row) {
        if (m_list->item(row)->data(sectionRole).toString() == section) {
            const QSignalBlocker blocker(m_list);
            m_list->setCurrentRow(row);
            return;
        }
    }
}

QString SideMenu::currentSection() const
{
    return m_list->currentItem() ? m_list->currentItem()->data(sectionRole).toString() : QString();
}

void SideMenu::setLabelsHidden(bool hidden)
{
    m_labelsHidden = hidden;
    {
        const QSignalBlocker blocker(m_collapse);
        m_collapse->setChecked(hidden);
    }
    m_collapse->setIcon(design::icon(hidden ? QStringLiteral("sidebar-expand") : QStringLiteral("sidebar-collapse")));
    design::name(m_collapse, hidden ? QStringLiteral("Show menu labels") : QStringLiteral("Hide menu labels"));
    m_collapse->setToolTip(m_collapse->accessibleName());
    for (int row = 0; row < m_list->count(); ++row) {
        QListWidgetItem* item = m_list->item(row);
        const QString section = item->data(sectionRole).toString();
        if (section.isEmpty()) {
            item->setHidden(hidden); // headers need their words
        } else {
            item->setText(hidden ? QString() : section);
        }
    }
    // Icons only leave no room for the two buttons side by side.
    m_tools->setDirection(hidden ? QBoxLayout::TopToBottom : QBoxLayout::LeftToRight);
    fitWidth();
}

void SideMenu::fitWidth()
{
    // As wide as the longest label needs (or the icons alone), never as wide as a table.
    m_list->doItemsLayout();
    int width = m_list->sizeHintForColumn(0);
    if (m_labelsHidden) {
        width = m_list->iconSize().width() + design::step(this) * 3;
    }
    const int buttons = m_collapse->sizeHint().width() + (m_labelsHidden ? 0 : m_hide->sizeHint().width());
    setFixedWidth(qMax(width, buttons) + 2 * m_list->frameWidth() + design::step(this));
}

} // namespace tavo
