#pragma once

#include <QWidget>

class QHBoxLayout;
class QLabel;

namespace tavo {

// The top of a page: its title, one line that says what the page is for, and the page's actions
// on the right.
class PageHeader : public QWidget
{
    Q_OBJECT

public:
    explicit PageHeader(const QString& title, const QString& subtitle = {}, QWidget* parent = nullptr);

    void setTitle(const QString& title);
    QString title() const;
    void setSubtitle(const QString& subtitle);
    QString subtitle() const;
    // Actions stand right of the title, in the order they are added.
    void addAction(QWidget* action);

protected:
    void changeEvent(QEvent* event) override;

private:
    void applyFonts();

    QLabel* m_title;
    QLabel* m_subtitle;
    QHBoxLayout* m_actions;
};

} // namespace tavo
