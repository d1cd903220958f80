#pragma once

#include <QWidget>

class QLabel;
class QPushButton;

namespace tavo {

// What a page shows when it has nothing to list: an icon, a title, one sentence that says what to
// do, and the one action that does it.
class EmptyState : public QWidget
{
    Q_OBJECT

public:
    EmptyState(const QString& iconName, const QString& title, const QString& sentence, const QString& actionText = {},
               QWidget* parent = nullptr);

    void setTitle(const QString& title);
    QString title() const;
    void setSentence(const QString& sentence);
    QString sentence() const;
    // An empty text hides the action.
    void setAction(const QString& actionText);
    QPushButton* actionButton() const { return m_action; }

signals:
    void actionTriggered();

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyLook();

    QString m_iconName;
    QLabel* m_icon;
    QLabel* m_title;
    QLabel* m_sentence;
    QPushButton* m_action;
};

} // namespace tavo
