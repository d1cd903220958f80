#pragma once

#include <QFrame>

class QLabel;
class QVBoxLayout;

namespace tavo {

// A titled panel on a page, for the Dashboard and the groups of Settings: an optional icon and
// title, then whatever the caller lays out in `body()`.
class Card : public QFrame
{
    Q_OBJECT

public:
    explicit Card(const QString& title = {}, const QString& iconName = {}, QWidget* parent = nullptr);

    QVBoxLayout* body() const { return m_body; }
    QString title() const;

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyLook();

    QString m_iconName;
    QLabel* m_icon;
    QLabel* m_title;
    QVBoxLayout* m_body;
};

} // namespace tavo
