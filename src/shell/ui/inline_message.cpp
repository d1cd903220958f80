#include "shell/ui/inline_message.h"

#include "shell/ui/design.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>

namespace tavo {

namespace {

QString iconName(InlineMessage::Kind kind)
{
    switch (kind) {
    case InlineMessage::Kind::Warning:
        return QStringLiteral("dialog-warning");
    case InlineMessage::Kind::Error:
        return QStringLiteral("dialog-error");
    case InlineMessage::Kind::Information:
        break;
    }
    return QStringLiteral("dialog-information");
}

} // namespace

InlineMessage::InlineMessage(QWidget* parent)
    : QFrame(parent)
    , m_icon(new QLabel(this))
    , m_text(new QLabel(this))
    , m_close(new QToolButton(this))
{
    setObjectName(QStringLiteral("inlineMessage"));
    m_text->setObjectName(QStringLiteral("inlineMessageText"));
    m_close->setObjectName(QStringLiteral("inlineMessageClose"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setAccessibleName(QStringLiteral("Message"));
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_close->setAutoRaise(true);
    m_close->setIcon(design::icon(QStringLiteral("window-close")));
    design::name(m_close, QStringLiteral("Close message"));
    connect(m_close, &QToolButton::clicked, this, [this] {
        hide();
        emit closed();
    });

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(design::step(this), design::step(this) / 2, design::step(this) / 2,
                               design::step(this) / 2);
    layout->setSpacing(design::step(this));
    layout->addWidget(m_icon, 0, Qt::AlignTop);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_close, 0, Qt::AlignTop);
    applyLook();
    hide();
}

void InlineMessage::showMessage(const QString& text, Kind kind)
{
    m_kind = kind;
    m_text->setText(text);
    setAccessibleDescription(text);
    applyLook();
    setVisible(!text.isEmpty());
}

QString InlineMessage::text() const
{
    return m_text->text();
}

void InlineMessage::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::PaletteChange || event->type() == QEvent::FontChange) {
        applyLook();
    }
    QFrame::changeEvent(event);
}

void InlineMessage::applyLook()
{
    const int size = fontMetrics().height();
    m_icon->setPixmap(design::icon(iconName(m_kind)).pixmap(size, size));
    // A quiet tint of the selection colour: stands out from the page in light and dark alike.
    const QPalette base = parentWidget() ? parentWidget()->palette() : palette();
    const QColor window = base.color(QPalette::Window);
    const QColor accent = base.color(QPalette::Highlight);
    QPalette tinted = palette();
    tinted.setColor(QPalette::Window, QColor::fromRgbF(window.redF() * 0.85f + accent.redF() * 0.15f,
                                                       window.greenF() * 0.85f + accent.greenF() * 0.15f,
                                                       window.blueF() * 0.85f + accent.blueF() * 0.15f));
    setPalette(tinted);
}

} // namespace tavo
