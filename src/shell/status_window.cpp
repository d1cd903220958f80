#include "shell/status_window.h"

#include <QVBoxLayout>

namespace tavo {

StatusWindow::StatusWindow(QWidget* parent)
    : QWidget(parent)
    , m_account(new QLabel(this))
    , m_keyboard(new QLabel(this))
    , m_notice(new QLabel(this))
{
    setWindowTitle(QStringLiteral("Tavo"));
    auto* layout = new QVBoxLayout(this);
    auto* title =
        new QLabel(QStringLiteral("<b>Tavo</b> — type \\ and a shortcut key, then a space, in any application."), this);
    title->setWordWrap(true);
    for (QLabel* label : {m_account, m_keyboard, m_notice}) {
        label->setWordWrap(true);
        label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    }
    layout->addWidget(title);
    layout->addWidget(m_account);
    layout->addWidget(m_keyboard);
    layout->addWidget(m_notice);
    layout->addStretch();
    resize(460, 200);
}

void StatusWindow::setAccount(const QString& text)
{
    m_account->setText(text);
}

void StatusWindow::setKeyboardState(const QString& text)
{
    m_keyboard->setText(text);
}

void StatusWindow::setNotice(const QString& text)
{
    m_notice->setText(text);
}

} // namespace tavo
