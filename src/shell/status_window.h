#pragma once

#include <QLabel>
#include <QWidget>

namespace tavo {

// A small window that says what Tavo is doing: who is signed in, whether keys can be followed,
// and the last notice. The main window takes its place later.
class StatusWindow : public QWidget
{
    Q_OBJECT

public:
    explicit StatusWindow(QWidget* parent = nullptr);

    void setAccount(const QString& text);
    void setKeyboardState(const QString& text);
    void setNotice(const QString& text);

private:
    QLabel* m_account;
    QLabel* m_keyboard;
    QLabel* m_notice;
};

} // namespace tavo
