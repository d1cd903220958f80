#include "browser/web/browser_home_page.h"

#include "browser/browser_tabs.h"
#include "shell/ui/card.h"
#include "shell/ui/design.h"
#include "shell/ui/empty_state.h"
#include "shell/ui/page_header.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QScrollArea>
#include <QStackedLayout>
#include <QUrl>
#include <QVBoxLayout>

namespace tavo {

namespace {
constexpr int cardColumns = 3;
}

BrowserHomePage::BrowserHomePage(TavoBrowserTabs& state, QWidget* parent)
    : QWidget(parent)
    , m_state(state)
    , m_content(new QStackedLayout)
    , m_cards(new QWidget(this))
    , m_grid(new QGridLayout(m_cards))
    , m_empty(new EmptyState(QStringLiteral("bookmarks"), QStringLiteral("No favorite links yet"),
                             QStringLiteral("Open a website and save it to the Favorites collection."),
                             QStringLiteral("Add favorite link"), this))
{
    design::name(this, QStringLiteral("Your Tavo start page"));
    const int gap = design::step(this);
    auto* header = new PageHeader(QStringLiteral("Your Tavo start page"),
                                  QStringLiteral("Your favorite links, ready to open."), this);
    auto* add =
        new QPushButton(design::icon(QStringLiteral("bookmark-new")), QStringLiteral("Add favorite link"), this);
    design::name(add, QStringLiteral("Add favorite link"));
    header->addAction(add);
    connect(add, &QPushButton::clicked, this, &BrowserHomePage::addFavoriteRequested);
    connect(m_empty, &EmptyState::actionTriggered, this, &BrowserHomePage::addFavoriteRequested);

    m_grid->setSpacing(gap * 2);
    m_grid->setContentsMargins(0, 0, 0, 0);
    auto* scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto* holder = new QWidget(scroll);
    auto* holderLayout = new QVBoxLayout(holder);
    holderLayout->setContentsMargins(0, 0, 0, 0);
    holderLayout->addWidget(m_cards);
    holderLayout->addStretch(1);
    scroll->setWidget(holder);
    m_content->addWidget(scroll);
    m_content->addWidget(m_empty);

    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(gap * 4, gap * 3, gap * 4, gap * 3);
    layout->setSpacing(gap * 3);
    layout->addWidget(header);
    layout->addLayout(m_content, 1);

    connect(&m_state, &TavoBrowserTabs::savedChanged, this, &BrowserHomePage::rebuild);
    rebuild();
}

int BrowserHomePage::cardCount() const
{
    return m_cardCount;
}

void BrowserHomePage::rebuild()
{
    while (QLayoutItem* item = m_grid->takeAt(0)) {
        delete item->widget();
        delete item;
    }
    m_cardCount = 0;
    for (const TavoSavedSite& site : m_state.saved()) {
        if (site.id == homeTabID || site.collection != favoritesCollection) {
            continue;
        }
        auto* card = new Card(site.title, QStringLiteral("internet-web-browser"), m_cards);
        auto* address = new QLabel(QUrl(site.url).host().isEmpty() ? site.url : QUrl(site.url).host(), card);
        QPalette quiet = address->palette();
        quiet.setColor(QPalette::WindowText, design::secondaryText(palette()));
        address->setPalette(quiet);
        if (!site.note.isEmpty()) {
            auto* note = new QLabel(site.note, card);
            note->setWordWrap(true);
            card->body()->addWidget(note);
        }
        auto* open = new QPushButton(QStringLiteral("Open"), card);
        design::name(open, QStringLiteral("Open ") + site.title);
        const QString url = site.url;
        connect(open, &QPushButton::clicked, this, [this, url] { m_state.open(url); });
        card->body()->addWidget(address);
        card->body()->addWidget(open, 0, Qt::AlignLeft);
        m_grid->addWidget(card, m_cardCount / cardColumns, m_cardCount % cardColumns);
        ++m_cardCount;
    }
    for (int column = 0; column < cardColumns; ++column) {
        m_grid->setColumnStretch(column, 1);
    }
    m_content->setCurrentIndex(m_cardCount == 0 ? 1 : 0);
}

} // namespace tavo
