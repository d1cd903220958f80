#include "shell/ui/page_header.h"

#include "shell/ui/design.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

namespace tavo {

PageHeader::PageHeader(const QString& title, const QString& subtitle, QWidget* parent)
    : QWidget(parent)
    , m_title(new QLabel(title, this))
    , m_subtitle(new QLabel(subtitle, this))
    , m_actions(new QHBoxLayout)
{
    setObjectName(QStringLiteral("pageHeader"));
    m_title->setObjectName(QStringLiteral("pageTitle"));
    m_subtitle->setObjectName(QStringLiteral("pageSubtitle"));
    m_title->setAccessibleName(title);
    m_title->setTextInteractionFlags(Qt::NoTextInteraction);
    m_subtitle->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred); // one line, clipped
    m_subtitle->setVisible(!subtitle.isEmpty());
    applyFonts();

    auto* text = new QVBoxLayout;
    text->setSpacing(0);
    text->addWidget(m_title);
    text->addWidget(m_subtitle);
    m_actions->setSpacing(design::step(this));
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, design::step(this));
    layout->addLayout(text, 1);
    layout->addLayout(m_actions);
}

void PageHeader::setTitle(const QString& title)
{
    m_title->setText(title);
    m_title->setAccessibleName(title);
}

QString PageHeader::title() const
{
    return m_title->text();
}

void PageHeader::setSubtitle(const QString& subtitle)
{
    m_subtitle->setText(subtitle);
    m_subtitle->setToolTip(subtitle);
    m_subtitle->setVisible(!subtitle.isEmpty());
}

QString PageHeader::subtitle() const
{
    return m_subtitle->text();
}

void PageHeader::addAction(QWidget* action)
{
    m_actions->addWidget(action, 0, Qt::AlignVCenter);
}

void PageHeader::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange) {
        applyFonts();
    }
    QWidget::changeEvent(event);
}

void PageHeader::applyFonts()
{
    m_title->setFont(design::pageTitleFont(font()));
    QPalette quiet = m_subtitle->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(palette()));
    m_subtitle->setPalette(quiet);
}

} // namespace tavo
