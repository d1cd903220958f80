#include "shell/ui/card.h"

#include "shell/ui/design.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace tavo {

Card::Card(const QString& title, const QString& iconName, QWidget* parent)
    : QFrame(parent)
    , m_iconName(iconName)
    , m_icon(new QLabel(this))
    , m_title(new QLabel(title, this))
    , m_body(new QVBoxLayout)
{
    setObjectName(QStringLiteral("card"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    m_title->setObjectName(QStringLiteral("cardTitle"));
    m_title->setWordWrap(true);
    m_icon->setVisible(!iconName.isEmpty());
    applyLook();

    const int gap = design::step(this);
    auto* heading = new QHBoxLayout;
    heading->setSpacing(gap);
    heading->addWidget(m_icon);
    heading->addWidget(m_title, 1);
    m_body->setSpacing(gap);
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(gap * 2, gap * 2, gap * 2, gap * 2);
    layout->setSpacing(gap);
    if (!title.isEmpty() || !iconName.isEmpty()) {
        layout->addLayout(heading);
    } else {
        m_title->hide();
    }
    layout->addLayout(m_body);
}

QString Card::title() const
{
    return m_title->text();
}

void Card::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange ||
        event->type() == QEvent::ParentChange) {
        applyLook();
    }
    QFrame::changeEvent(event);
}

void Card::applyLook()
{
    // Light: the base colour of lists, so a card stands out from the page. Dark: a step lighter
    // than the page, since dark bases are darker than the page and would swallow the outlines of
    // the check boxes drawn on them.
    const QPalette page = parentWidget() ? parentWidget()->palette() : QPalette();
    QPalette own = palette();
    own.setColor(QPalette::Window,
                 design::isDark(page) ? page.color(QPalette::Window).lighter(118) : page.color(QPalette::Base));
    setPalette(own);
    m_title->setFont(design::sectionHeaderFont(font()));
    if (!m_iconName.isEmpty()) {
        const int size = QFontMetrics(m_title->font()).height();
        m_icon->setPixmap(design::icon(m_iconName).pixmap(size, size));
    }
}

} // namespace tavo
