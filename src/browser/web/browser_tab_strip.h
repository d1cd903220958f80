#pragma once

#include <QWidget>

class QHBoxLayout;

namespace tavo {

class TavoBrowserTabs;

// The row of tabs, drawn group by group in the model's order: a coloured chip per named group
// that folds its tabs away, the tabs themselves with a close button, and "New tab".
class BrowserTabStrip : public QWidget
{
    Q_OBJECT

public:
    explicit BrowserTabStrip(TavoBrowserTabs& state, QWidget* parent = nullptr);

    // The colour a named group is drawn in.
    static QColor groupColor(const QString& group);

private:
    void rebuild();
    void scheduleRebuild();
    QWidget* makeGroupChip(const QString& group, int count);
    QWidget* makeTab(const QString& id, const QString& title, const QString& url, const QString& group);
    void askForGroup(const QString& tabID);
    void askToRename(const QString& group);

    TavoBrowserTabs& m_state;
    QHBoxLayout* m_row;
    bool m_rebuildScheduled = false;
};

} // namespace tavo
