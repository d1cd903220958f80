#pragma once

#include <QStringList>
#include <QWidget>

class QBoxLayout;
class QListWidget;
class QListWidgetItem;
class QToolButton;

namespace tavo {

// The window's side menu: a section per row with its icon, grouped under small headers. With
// labels hidden it shows icons only, the labels as tooltips.
class SideMenu : public QWidget
{
    Q_OBJECT

public:
    struct Entry
    {
        QString section;
        QString iconName; // freedesktop name
        QString group;    // the header it stands under; empty for the top rows
    };

    SideMenu(const QList<Entry>& entries, QWidget* parent = nullptr);

    // The sections in the order they show, without headers.
    QStringList sections() const;
    void setCurrentSection(const QString& section);
    QString currentSection() const;

    void setLabelsHidden(bool hidden);
    bool labelsHidden() const { return m_labelsHidden; }

signals:
    void sectionChosen(const QString& section);
    void labelsHiddenToggled(bool hidden);
    void hideRequested();

private:
    void fitWidth();

    QListWidget* m_list;
    QToolButton* m_collapse;
    QToolButton* m_hide;
    QBoxLayout* m_tools;
    bool m_labelsHidden = false;
};

} // namespace tavo
