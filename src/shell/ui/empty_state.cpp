#include "shell/ui/empty_state.h"

#include "shell/ui/design.h"

#include <QEvent>
#include <QLabel>
#include <QPushButton>
#include <QStyle>
#include <QVBoxLayout>

namespace tavo {

EmptyState::EmptyState(const QString& iconName, const QString& title, const QString& sentence,
                       const QString& actionText, QWidget* parent)
    : QWidget(parent)
    , m_iconName(iconName)
    , m_icon(new QLabel(this))
    , m_title(new QLabel(title, this))
    , m_sentence(new QLabel(sentence, this))
    , m_action(new QPushButton(this))
{
    setObjectName(QStringLiteral("emptyState"));
    m_title->setObjectName(QStringLiteral("emptyTitle"));
    m_sentence->setObjectName(QStringLiteral("emptySentence"));
    m_action->setObjectName(QStringLiteral("emptyAction"));
    m_icon->setAccessibleName(title);
    m_icon->setAlignment(Qt::AlignCenter);
    m_title->setAlignment(Qt::AlignCenter);
    m_title->setWordWrap(true);
    m_sentence->setAlignment(Qt::AlignCenter);
    m_sentence->setWordWrap(true);
    setAction(actionText);
    connect(m_action, &QPushButton::clicked, this, &EmptyState::actionTriggered);
    applyLook();

    auto* layout = new QVBoxLayout(this);
    layout->setSpacing(design::step(this));
    layout->addStretch();
    layout->addWidget(m_icon);
    layout->addWidget(m_title);
    layout->addWidget(m_sentence);
    layout->addSpacing(design::step(this));
    layout->addWidget(m_action, 0, Qt::AlignHCenter);
    layout->addStretch(2);
}

void EmptyState::setTitle(const QString& title)
{
    m_title->setText(title);
    m_icon->setAccessibleName(title);
}

QString EmptyState::title() const
{
    return m_title->text();
}

void EmptyState::setSentence(const QString& sentence)
{
    m_sentence->setText(sentence);
}

QString EmptyState::sentence() const
{
    return m_sentence->text();
}

void EmptyState::setAction(const QString& actionText)
{
    m_action->setText(actionText);
    m_action->setVisible(!actionText.isEmpty());
}

void EmptyState::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::FontChange || event->type() == QEvent::PaletteChange ||
        event->type() == QEvent::StyleChange) {
        applyLook();
    }
    QWidget::changeEvent(event);
}

void EmptyState::applyLook()
{
    // Four lines of text high: large enough to say "nothing here", small enough to stay quiet.
    const int size = fontMetrics().height() * 4;
    m_icon->setPixmap(design::icon(m_iconName).pixmap(size, size));
    m_title->setFont(design::sectionHeaderFont(font()));
    QPalette quiet = m_sentence->palette();
    quiet.setColor(QPalette::WindowText, design::secondaryText(palette()));
    m_sentence->setPalette(quiet);
}

} // namespace tavo
