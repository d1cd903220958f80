#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QString>

class QLabel;
class QPalette;
class QWidget;

namespace tavo::design {

// One spacing grid for every screen: a step is the style's own layout spacing, so a layout made
// of steps follows the style and the screen's scale instead of fixed pixels.
int step(const QWidget* widget, int steps = 1);

// The type scale. Page titles and section headers grow from the widget's own font, so a user's
// larger font keeps the proportions.
QFont pageTitleFont(const QFont& base);
QFont sectionHeaderFont(const QFont& base);
// Keys and codes: the desktop's fixed-width font at the body's size.
QFont fixedFont(const QFont& base);
// Secondary text: the text colour moved towards the background, readable on light and dark.
QColor secondaryText(const QPalette& palette);
// A wrapping label in the secondary text colour: hints and explanations under a control.
QLabel* quietLabel(const QString& text, QWidget* parent);
// Whether the palette is a dark one (light text on a dark window).
bool isDark(const QPalette& palette);
// A palette for a dark desktop, for the screens and the screenshots of a dark session.
QPalette darkPalette();

// Icons by their freedesktop names, from the desktop's theme; the distribution's theme fills in
// whatever the desktop lacks, in its light or dark variant as the palette asks. Cached by name.
QIcon icon(const QString& freedesktopName);
// The freedesktop icon that stands for one of the symbol names the store gives collections and
// the scorecard's cards ("globe", "person.2.fill", ...); a folder for a name it does not know.
QString freedesktopNameOfSymbol(const QString& symbol);
inline QIcon symbolIcon(const QString& symbol)
{
    return icon(freedesktopNameOfSymbol(symbol));
}
// Call once the application's palette is known (and again if it changes).
void useIconThemeFor(const QPalette& palette);

// Wraps the application's style so that what it draws reads in dark palettes too: check boxes and
// radio buttons get an outline in the text's quiet colour, which Fusion draws too dark to see.
// Call once, after the style is chosen.
void installStyle();

// Labels a control for assistive technologies in one call: its accessible name, and its tooltip
// unless it has one already.
void name(QWidget* widget, const QString& accessibleName);

} // namespace tavo::design
