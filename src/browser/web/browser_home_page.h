#pragma once

#include <QWidget>

class QGridLayout;
class QStackedLayout;

namespace tavo {

class EmptyState;
class TavoBrowserTabs;

// The Home tab: the links of the "Favorites" collection as cards that open in the current tab,
// or a word on how to add some.
class BrowserHomePage : public QWidget
{
    Q_OBJECT

public:
    explicit BrowserHomePage(TavoBrowserTabs& state, QWidget* parent = nullptr);

    int cardCount() const;

signals:
    void addFavoriteRequested();

private:
    void rebuild();

    TavoBrowserTabs& m_state;
    QStackedLayout* m_content;
    QWidget* m_cards;
    QGridLayout* m_grid;
    EmptyState* m_empty;
    int m_cardCount = 0;
};

} // namespace tavo
