#include "shell/ui/design.h"

#include <QApplication>
#include <QFontDatabase>
#include <QHash>
#include <QLabel>
#include <QPainter>
#include <QPalette>
#include <QProxyStyle>
#include <QStandardPaths>
#include <QStyle>
#include <QStyleOption>
#include <QWidget>

namespace tavo::design {

int step(const QWidget* widget, int steps)
{
    const QStyle* style = widget ? widget->style() : QApplication::style();
    const int spacing = style ? style->pixelMetric(QStyle::PM_LayoutHorizontalSpacing, nullptr, widget) : -1;
    return steps * (spacing > 0 ? spacing : 6);
}

namespace {

QFont scaled(const QFont& base, double factor, int weight)
{
    QFont font = base;
    if (base.pointSizeF() > 0) {
        font.setPointSizeF(base.pointSizeF() * factor);
    } else {
        font.setPixelSize(qRound(base.pixelSize() * factor));
    }
    font.setWeight(QFont::Weight(weight));
    return font;
}

QHash<QString, QIcon>& iconCache()
{
    static QHash<QString, QIcon> cache;
    return cache;
}

} // namespace

QFont pageTitleFont(const QFont& base)
{
    return scaled(base, 1.6, QFont::DemiBold);
}

QFont sectionHeaderFont(const QFont& base)
{
    return scaled(base, 1.15, QFont::DemiBold);
}

QFont fixedFont(const QFont& base)
{
    QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    if (base.pointSizeF() > 0) {
        font.setPointSizeF(base.pointSizeF());
    }
    return font;
}

QColor secondaryText(const QPalette& palette)
{
    const QColor text = palette.color(QPalette::WindowText);
    const QColor window = palette.color(QPalette::Window);
    // Two thirds of the way from the background to the text: clearly quieter, still readable.
    return QColor::fromRgbF(window.redF() + (text.redF() - window.redF()) * 0.66f,
                            window.greenF() + (text.greenF() - window.greenF()) * 0.66f,
                            window.blueF() + (text.blueF() - window.blueF()) * 0.66f);
}

QLabel* quietLabel(const QString& text, QWidget* parent)
{
    auto* label = new QLabel(text, parent);
    label->setWordWrap(true);
    QPalette quiet = label->palette();
    quiet.setColor(QPalette::WindowText, secondaryText(parent->palette()));
    label->setPalette(quiet);
    return label;
}

bool isDark(const QPalette& palette)
{
    return palette.color(QPalette::Window).lightnessF() < palette.color(QPalette::WindowText).lightnessF();
}

QPalette darkPalette()
{
    QPalette palette;
    const QColor window(0x2a, 0x2d, 0x32);
    const QColor base(0x1f, 0x22, 0x26);
    const QColor text(0xe8, 0xea, 0xed);
    const QColor disabled(0x80, 0x85, 0x8c);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, QColor(0x26, 0x29, 0x2e));
    palette.setColor(QPalette::ToolTipBase, QColor(0x31, 0x36, 0x3b));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, disabled);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x33, 0x37, 0x3d));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, QColor(0xff, 0x6b, 0x6b));
    palette.setColor(QPalette::Light, QColor(0x45, 0x4a, 0x51));
    palette.setColor(QPalette::Midlight, QColor(0x3a, 0x3e, 0x44));
    palette.setColor(QPalette::Mid, QColor(0x24, 0x27, 0x2b));
    palette.setColor(QPalette::Dark, QColor(0x18, 0x1a, 0x1d));
    palette.setColor(QPalette::Shadow, Qt::black);
    palette.setColor(QPalette::Highlight, QColor(0x3d, 0x7e, 0xd6));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x6c, 0xa8, 0xf0));
    palette.setColor(QPalette::LinkVisited, QColor(0xa8, 0x8c, 0xe8));
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText}) {
        palette.setColor(QPalette::Disabled, role, disabled);
    }
    return palette;
}

QIcon icon(const QString& freedesktopName)
{
    QHash<QString, QIcon>& cache = iconCache();
    const auto found = cache.constFind(freedesktopName);
    if (found != cache.constEnd()) {
        return *found;
    }
    QIcon themed = QIcon::fromTheme(freedesktopName);
    cache.insert(freedesktopName, themed);
    return themed;
}

QString freedesktopNameOfSymbol(const QString& symbol)
{
    static const QHash<QString, QString> names{
        {QStringLiteral("app.dashed"), QStringLiteral("applications-other")},
        {QStringLiteral("sparkles"), QStringLiteral("tools-wizard")},
        {QStringLiteral("globe"), QStringLiteral("applications-internet")},
        {QStringLiteral("photo.on.rectangle.angled"), QStringLiteral("folder-pictures")},
        {QStringLiteral("face.smiling"), QStringLiteral("face-smile")},
        {QStringLiteral("play.rectangle"), QStringLiteral("video-x-generic")},
        {QStringLiteral("doc.text.fill"), QStringLiteral("text-x-generic")},
        {QStringLiteral("person.2.fill"), QStringLiteral("system-users")},
        {QStringLiteral("shippingbox.fill"), QStringLiteral("package-x-generic")},
        {QStringLiteral("wand.and.stars"), QStringLiteral("tools-wizard")},
        {QStringLiteral("person.crop.circle"), QStringLiteral("user-identity")},
        {QStringLiteral("briefcase.fill"), QStringLiteral("folder-documents")},
        {QStringLiteral("pencil.and.outline"), QStringLiteral("document-edit")},
        {QStringLiteral("waveform.path"), QStringLiteral("media-playlist-shuffle")},
        {QStringLiteral("square.and.arrow.down"), QStringLiteral("document-import")},
        {QStringLiteral("square.and.arrow.up"), QStringLiteral("document-export")},
        {QStringLiteral("keyboard"), QStringLiteral("input-keyboard")},
        {QStringLiteral("doc.on.doc.fill"), QStringLiteral("edit-copy")},
        {QStringLiteral("text.duplicate"), QStringLiteral("edit-duplicate")},
        {QStringLiteral("bolt.fill"), QStringLiteral("system-run")},
        {QStringLiteral("app.badge"), QStringLiteral("applications-development")},
        {QStringLiteral("storefront"), QStringLiteral("applications-office")},
        {QStringLiteral("cart.fill"), QStringLiteral("view-financial-list")},
        {QStringLiteral("bag.fill"), QStringLiteral("view-financial-list")},
        {QStringLiteral("indianrupeesign.circle.fill"), QStringLiteral("view-financial-account-savings")},
    };
    return names.value(symbol, QStringLiteral("folder"));
}

void useIconThemeFor(const QPalette& palette)
{
    // Some platforms (offscreen, a bare X session) search only the resources: add the desktop's
    // icon folders, the user's first.
    QStringList paths = QIcon::themeSearchPaths();
    const QStringList folders = QStandardPaths::locateAll(QStandardPaths::GenericDataLocation, QStringLiteral("icons"),
                                                          QStandardPaths::LocateDirectory);
    for (const QString& folder : folders) {
        if (!paths.contains(folder)) {
            paths << folder;
        }
    }
    QIcon::setThemeSearchPaths(paths);
    const QString fallback = isDark(palette) ? QStringLiteral("breeze-dark") : QStringLiteral("breeze");
    QIcon::setFallbackThemeName(fallback);
    // Without a desktop that names a theme (a bare window manager), the fallback is the theme.
    const QString current = QIcon::themeName();
    if (current.isEmpty() || current == QLatin1String("hicolor") || current.startsWith(QLatin1String("breeze"))) {
        QIcon::setThemeName(fallback);
    }
    iconCache().clear();
}

namespace {

class TavoStyle : public QProxyStyle
{
public:
    using QProxyStyle::QProxyStyle;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget) const override
    {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        if (element == PE_PanelButtonCommand && option->state.testFlag(State_On) && isDark(option->palette)) {
            // A pressed toggle (Shortcuts / Records) is barely darker than a raised one on a dark
            // window: a tint of the selection colour tells them apart.
            QColor tint = option->palette.color(QPalette::Highlight);
            tint.setAlphaF(0.35f);
            painter->save();
            painter->setRenderHint(QPainter::Antialiasing);
            painter->setPen(Qt::NoPen);
            painter->setBrush(tint);
            painter->drawRoundedRect(QRectF(option->rect).adjusted(1, 1, -1, -1), 2, 2);
            painter->restore();
            return;
        }
        const auto* frame = qstyleoption_cast<const QStyleOptionFrame*>(option);
        if (element == PE_PanelLineEdit && frame && frame->lineWidth > 0 && isDark(option->palette) &&
            !option->state.testFlag(State_HasFocus)) {
            // An empty field's frame all but vanishes on a dark window: outline it as check boxes are.
            QColor outline = secondaryText(option->palette);
            outline.setAlphaF(0.45f);
            painter->save();
            painter->setRenderHint(QPainter::Antialiasing);
            painter->setBrush(Qt::NoBrush);
            painter->setPen(QPen(outline, 1));
            painter->drawRoundedRect(QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5), 2, 2);
            painter->restore();
            return;
        }
        const bool box = element == PE_IndicatorCheckBox || element == PE_IndicatorItemViewItemCheck;
        if ((box || element == PE_IndicatorRadioButton) && isDark(option->palette)) {
            painter->save();
            painter->setRenderHint(QPainter::Antialiasing);
            painter->setBrush(Qt::NoBrush);
            painter->setPen(QPen(secondaryText(option->palette), 1));
            const QRectF frame = QRectF(option->rect).adjusted(0.5, 0.5, -0.5, -0.5);
            if (box) {
                painter->drawRoundedRect(frame, 2, 2);
            } else {
                painter->drawEllipse(frame);
            }
            painter->restore();
        }
    }
};

} // namespace

void installStyle()
{
    if (!dynamic_cast<TavoStyle*>(QApplication::style())) {
        QApplication::setStyle(new TavoStyle(QApplication::style()->name()));
    }
}

void name(QWidget* widget, const QString& accessibleName)
{
    widget->setAccessibleName(accessibleName);
    if (widget->toolTip().isEmpty()) {
        widget->setToolTip(accessibleName);
    }
}

} // namespace tavo::design
