#include "platform/x11/x11_desktop.h"

#include "platform/x11/x11_key_typing.h"
#include "platform/x11/x11_keyboard_tap.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QSet>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <vector>

// X11 last: its macros (None, Bool, Status) clash with Qt's names.
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib-xcb.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

namespace tavo {

namespace {

Q_LOGGING_CATEGORY(lcDesktop, "tavo.platform.x11")

constexpr int FocusPollMs = 5;
constexpr int ModifierPollMs = 5;
constexpr int LentKeycodeMs = 2000;

const QSet<QString>& terminalClasses()
{
    static const QSet<QString> classes = {
        QStringLiteral("xterm"),
        QStringLiteral("uxterm"),
        QStringLiteral("urxvt"),
        QStringLiteral("gnome-terminal-server"),
        QStringLiteral("gnome-terminal"),
        QStringLiteral("konsole"),
        QStringLiteral("xfce4-terminal"),
        QStringLiteral("kitty"),
        QStringLiteral("alacritty"),
        QStringLiteral("tilix"),
        QStringLiteral("terminator"),
        QStringLiteral("st"),
        QStringLiteral("st-256color"),
        QStringLiteral("wezterm"),
        QStringLiteral("org.wezfurlong.wezterm"),
    };
    return classes;
}

// Read PRIMARY with Shift+Insert and have no Ctrl+Shift+V by default.
const QSet<QString>& primaryClasses()
{
    static const QSet<QString> classes = {QStringLiteral("xterm"), QStringLiteral("uxterm"), QStringLiteral("urxvt")};
    return classes;
}

QString removeFieldCodes(const QString& exec)
{
    QString command;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        if (exec.at(i) == u'%' && i + 1 < exec.size()) {
            ++i;
            if (exec.at(i) == u'%')
                command += u'%';
            continue;
        }
        command += exec.at(i);
    }
    return command;
}

QString execOfDesktopEntry(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return {};
    bool inEntry = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inEntry = line == QLatin1String("[Desktop Entry]");
            continue;
        }
        if (inEntry && line.startsWith(QLatin1String("Exec="))) {
            return line.mid(5).trimmed();
        }
    }
    return {};
}

} // namespace

X11Desktop::X11Desktop()
{
    // This also installs the X error handler that tolerates errors: Xlib's default one ends the
    // process, and a window that vanished between two requests is normal here.
    if (auto problem = X11KeyboardTap::sessionProblem()) {
        m_problem = *problem;
        return;
    }
    m_display = XOpenDisplay(nullptr);
    if (!m_display) {
        m_problem = QStringLiteral("Cannot open the X11 display.");
        return;
    }
    keepRunningWhenLost(m_display);
    // An unmapped window of our own: appending nothing to one of its properties gives a real
    // server timestamp, which window managers want with an activation request.
    XSetWindowAttributes attributes = {};
    attributes.event_mask = PropertyChangeMask;
    m_timeWindow = XCreateWindow(m_display, XDefaultRootWindow(m_display), -1, -1, 1, 1, 0, 0, InputOnly,
                                 CopyFromParent, CWEventMask, &attributes);

    int opcode = 0, error = 0, major = XkbMajorVersion, minor = XkbMinorVersion;
    if (XkbQueryExtension(m_display, &opcode, &m_xkbEventBase, &error, &major, &minor)) {
        XkbSelectEventDetails(m_display, XkbUseCoreKbd, XkbStateNotify, XkbModifierStateMask, XkbModifierStateMask);
        XkbStateRec state{};
        if (XkbGetState(m_display, XkbUseCoreKbd, &state) == Success) {
            m_modifiers = state.base_mods;
            m_modifiersKnown = true;
        }
    }

    m_events = std::make_unique<QSocketNotifier>(XConnectionNumber(m_display), QSocketNotifier::Read);
    QObject::connect(m_events.get(), &QSocketNotifier::activated, [this] { takeEvents(); });

    m_returnLentKeycodes.setSingleShot(true);
    m_returnLentKeycodes.setInterval(LentKeycodeMs);
    QObject::connect(&m_returnLentKeycodes, &QTimer::timeout, [this] { returnLentKeycodes(); });
}

X11Desktop::~X11Desktop()
{
    returnLentKeycodes();
    if (m_display) {
        if (m_timeWindow)
            XDestroyWindow(m_display, m_timeWindow);
        XCloseDisplay(m_display);
    }
}

QString X11Desktop::unavailableReason() const
{
    return m_problem;
}

unsigned long X11Desktop::atom(const char* name)
{
    return XInternAtom(m_display, name, False);
}

unsigned long X11Desktop::serverTime()
{
    const Atom property = atom("_TAVO_TIMESTAMP");
    unsigned char nothing = 0;
    XChangeProperty(m_display, m_timeWindow, property, XA_STRING, 8, PropModeAppend, &nothing, 0);
    XEvent event;
    XWindowEvent(m_display, m_timeWindow, PropertyChangeMask, &event);
    return event.xproperty.time;
}

namespace {

// One property of 32-bit items (CARDINAL, WINDOW): the first item, or 0.
unsigned long cardinalProperty(Display* display, Window window, Atom property, Atom type)
{
    Atom actualType = 0;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    unsigned long value = 0;
    if (XGetWindowProperty(display, window, property, 0, 1, False, type, &actualType, &format, &items, &after, &data) ==
            Success &&
        data) {
        if (actualType == type && format == 32 && items == 1)
            value = reinterpret_cast<unsigned long*>(data)[0];
        XFree(data);
    }
    return value;
}

bool hasProperty(Display* display, Window window, Atom property)
{
    Atom actualType = 0;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    const bool found = XGetWindowProperty(display, window, property, 0, 0, False, AnyPropertyType, &actualType, &format,
                                          &items, &after, &data) == Success &&
                       actualType != 0;
    if (data)
        XFree(data);
    return found;
}

Window parentOf(Display* display, Window window)
{
    Window root = 0, parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(display, window, &root, &parent, &children, &count))
        return 0;
    if (children)
        XFree(children);
    return parent;
}

Window findClient(Display* display, Window window, Atom wmState, int depth)
{
    if (hasProperty(display, window, wmState))
        return window;
    if (depth == 0)
        return 0;
    Window root = 0, parent = 0;
    Window* children = nullptr;
    unsigned int count = 0;
    if (!XQueryTree(display, window, &root, &parent, &children, &count))
        return 0;
    Window found = 0;
    for (unsigned int i = count; i > 0 && !found; --i)
        found = findClient(display, children[i - 1], wmState, depth - 1);
    if (children)
        XFree(children);
    return found;
}

} // namespace

bool X11Desktop::usesWindowManager()
{
    // The check window must name itself, or the property is a leftover of a window manager
    // that has gone.
    const Window root = XDefaultRootWindow(m_display);
    const Atom check = atom("_NET_SUPPORTING_WM_CHECK");
    const Window wm = cardinalProperty(m_display, root, check, XA_WINDOW);
    return wm != 0 && cardinalProperty(m_display, wm, check, XA_WINDOW) == wm;
}

unsigned long X11Desktop::inputFocus()
{
    Window focus = 0;
    int revert = 0;
    XGetInputFocus(m_display, &focus, &revert);
    if (focus == PointerRoot)
        return 0;
    return focus;
}

unsigned long X11Desktop::topLevelOf(unsigned long window)
{
    const Window root = XDefaultRootWindow(m_display);
    const Atom wmState = atom("WM_STATE");
    Window current = window;
    while (current != 0 && current != root) {
        if (hasProperty(m_display, current, wmState))
            return current;
        const Window parent = parentOf(m_display, current);
        if (parent == root || parent == 0) {
            // A child of the root without WM_STATE: a frame holding the client, or, without a
            // window manager, the application's window itself.
            const Window client = findClient(m_display, current, wmState, 3);
            return client ? client : current;
        }
        current = parent;
    }
    return 0;
}

DesktopWindow X11Desktop::activeWindow()
{
    DesktopWindow result;
    if (!m_display)
        return result;
    Window window = 0;
    if (usesWindowManager()) {
        window = cardinalProperty(m_display, XDefaultRootWindow(m_display), atom("_NET_ACTIVE_WINDOW"), XA_WINDOW);
    }
    if (window == 0) {
        const Window focus = inputFocus();
        if (focus != 0)
            window = topLevelOf(focus);
    }
    if (window == 0)
        return result;

    result.id = window;
    XClassHint hint = {};
    if (XGetClassHint(m_display, window, &hint)) {
        const QString instance = hint.res_name ? QString::fromLocal8Bit(hint.res_name) : QString();
        const QString windowClass = hint.res_class ? QString::fromLocal8Bit(hint.res_class) : QString();
        result.windowClass = windowClass.toLower();
        result.applicationName = windowClass.isEmpty() ? instance : windowClass;
        if (hint.res_name)
            XFree(hint.res_name);
        if (hint.res_class)
            XFree(hint.res_class);
    }
    result.pid = qint64(cardinalProperty(m_display, window, atom("_NET_WM_PID"), XA_CARDINAL));
    follow(window);
    return result;
}

void X11Desktop::follow(unsigned long window)
{
    if (window != m_followed) {
        if (m_followed != 0)
            XSelectInput(m_display, m_followed, NoEventMask);
        XSelectInput(m_display, window, FocusChangeMask);
        m_followed = window;
    }
    // Asked after the selection: a change from now on comes as an event.
    takeEvents();
    m_followedFocused = focusInside(window);
}

void X11Desktop::takeFocusEvent(int type, int mode, int detail, unsigned long window)
{
    // A keyboard grab (the tap's among them) moves no focus.
    if (window != m_followed || mode == NotifyGrab || mode == NotifyUngrab)
        return;
    if (detail == NotifyInferior) // between the window and one of its children: still inside
        return;
    const bool known = detail == NotifyAncestor || detail == NotifyVirtual || detail == NotifyNonlinear ||
                       detail == NotifyNonlinearVirtual;
    // Anything else (the pointer's focus) is asked of the server next time.
    m_followedFocused = known && type == FocusIn;
}

bool X11Desktop::focusInside(unsigned long window)
{
    const Window root = XDefaultRootWindow(m_display);
    for (Window current = inputFocus(); current != 0 && current != root; current = parentOf(m_display, current)) {
        if (current == window)
            return true;
    }
    return false;
}

bool X11Desktop::activate(const DesktopWindow& window, int timeoutMs)
{
    if (!m_display || !window.isValid())
        return false;
    if (focusInside(window.id))
        return true;

    if (usesWindowManager()) {
        // Source indication 2 (a pager or a tool acting for the user) with a real timestamp:
        // window managers refuse focus stealing by applications otherwise.
        XEvent event = {};
        event.xclient.type = ClientMessage;
        event.xclient.window = window.id;
        event.xclient.message_type = atom("_NET_ACTIVE_WINDOW");
        event.xclient.format = 32;
        event.xclient.data.l[0] = 2;
        event.xclient.data.l[1] = long(serverTime());
        event.xclient.data.l[2] = 0;
        XSendEvent(m_display, XDefaultRootWindow(m_display), False, SubstructureRedirectMask | SubstructureNotifyMask,
                   &event);
        XRaiseWindow(m_display, window.id);
    } else {
        XRaiseWindow(m_display, window.id);
        XSetInputFocus(m_display, window.id, RevertToParent, CurrentTime);
    }
    XFlush(m_display);

    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (focusInside(window.id))
            return true;
        if (timer.elapsed() >= timeoutMs)
            return false;
        QThread::msleep(FocusPollMs);
    }
}

QString X11Desktop::title(const DesktopWindow& window)
{
    if (!m_display || !window.isValid())
        return {};
    Atom actualType = 0;
    int format = 0;
    unsigned long items = 0, after = 0;
    unsigned char* data = nullptr;
    if (XGetWindowProperty(m_display, window.id, atom("_NET_WM_NAME"), 0, 4096, False, atom("UTF8_STRING"), &actualType,
                           &format, &items, &after, &data) == Success &&
        data) {
        QString title;
        if (format == 8 && items > 0)
            title = QString::fromUtf8(reinterpret_cast<const char*>(data), qsizetype(items));
        XFree(data);
        if (!title.isEmpty())
            return title;
    }

    XTextProperty property = {};
    QString title;
    if (XGetWMName(m_display, window.id, &property) && property.value) {
        char** list = nullptr;
        int count = 0;
        if (Xutf8TextPropertyToTextList(m_display, &property, &list, &count) >= Success && list) {
            if (count > 0)
                title = QString::fromUtf8(list[0]);
            XFreeStringList(list);
        }
        XFree(property.value);
    }
    return title;
}

const std::vector<unsigned char>& X11Desktop::modifierKeycodes()
{
    takeEvents();
    if (m_modifierKeycodesRead)
        return m_modifierKeycodes;
    m_modifierKeycodes.clear();
    if (XModifierKeymap* map = XGetModifierMapping(m_display)) {
        for (const int modifier : {ShiftMapIndex, ControlMapIndex, Mod1MapIndex, Mod4MapIndex, Mod5MapIndex}) {
            for (int i = 0; i < map->max_keypermod; ++i) {
                const ::KeyCode code = map->modifiermap[modifier * map->max_keypermod + i];
                if (code != 0)
                    m_modifierKeycodes.push_back(code);
            }
        }
        XFreeModifiermap(map);
        m_modifierKeycodesRead = true;
    }
    return m_modifierKeycodes;
}

void X11Desktop::takeEvents()
{
    while (XPending(m_display) > 0) {
        XEvent event;
        XNextEvent(m_display, &event);
        if (event.type == MappingNotify) {
            XRefreshKeyboardMapping(&event.xmapping);
            if (event.xmapping.request == MappingModifier || event.xmapping.request == MappingKeyboard)
                m_modifierKeycodesRead = false;
        } else if (event.type == FocusIn || event.type == FocusOut) {
            takeFocusEvent(event.type, event.xfocus.mode, event.xfocus.detail, event.xfocus.window);
        } else if (event.type == m_xkbEventBase) {
            const auto* xkb = reinterpret_cast<const XkbEvent*>(&event);
            if (xkb->any.xkb_type == XkbStateNotify)
                m_modifiers = xkb->state.base_mods;
        }
    }
}

void X11Desktop::waitForModifiersReleased(int timeoutMs)
{
    if (!m_display)
        return;
    const std::vector<unsigned char> modifierKeys = modifierKeycodes();
    std::array<char, 32> keys{};
    const auto down = [&](unsigned char code) { return (keys[code / 8] >> (code % 8)) & 1; };
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        XQueryKeymap(m_display, keys.data());
        bool anyDown = false;
        for (const unsigned char code : modifierKeys)
            anyDown = anyDown || down(code);
        if (!anyDown)
            return;
        if (timer.elapsed() >= timeoutMs)
            break;
        QThread::msleep(ModifierPollMs);
    }
    // Still down: release them, so they do not turn the keys sent next into other commands.
    // Never a press: that would leave a modifier stuck if the user lets go meanwhile.
    qCDebug(lcDesktop) << "modifiers still held; releasing them";
    for (const unsigned char code : modifierKeys) {
        if (down(code))
            XTestFakeKeyEvent(m_display, code, False, 0);
    }
    XSync(m_display, False);
}

void X11Desktop::prepareToType(const DesktopWindow& window, int activationMs, int modifierMs)
{
    if (!m_display || !window.isValid())
        return;
    // Usually the target has kept the focus and no modifier is down, as the events since the
    // trigger began tell; otherwise both are asked in one round trip.
    const std::vector<unsigned char>& modifierKeys = modifierKeycodes();
    constexpr unsigned shortcutModifiers = ShiftMask | ControlMask | Mod1Mask | Mod4Mask | Mod5Mask;
    if (window.id == m_followed && m_followedFocused && m_modifiersKnown && !(m_modifiers & shortcutModifiers))
        return;
    xcb_connection_t* connection = XGetXCBConnection(m_display);
    const auto focusCookie = xcb_get_input_focus(connection);
    const auto keymapCookie = xcb_query_keymap(connection);
    xcb_get_input_focus_reply_t* focus = xcb_get_input_focus_reply(connection, focusCookie, nullptr);
    xcb_query_keymap_reply_t* keymap = xcb_query_keymap_reply(connection, keymapCookie, nullptr);
    const bool focused = focus && focus->focus == window.id;
    bool modifierDown = !keymap;
    for (const unsigned char code : modifierKeys)
        modifierDown = modifierDown || (keymap && ((keymap->keys[code / 8] >> (code % 8)) & 1));
    free(focus);
    free(keymap);
    if (focused && !modifierDown)
        return;
    activate(window, activationMs);
    waitForModifiersReleased(modifierMs);
    if (window.id == m_followed)
        m_followedFocused = focusInside(window.id);
}

unsigned char X11Desktop::keycodeFor(unsigned long keysym)
{
    if (const ::KeyCode code = XKeysymToKeycode(m_display, keysym))
        return code;
    for (const auto& [sym, code] : std::as_const(m_lentKeycodes)) {
        if (sym == keysym)
            return code;
    }
    // The layout lacks the key (Insert on a small keyboard, v on a layout without Latin
    // letters): lend the keysym a key code that types nothing.
    int minimum = 0, maximum = 0, perKeycode = 0;
    XDisplayKeycodes(m_display, &minimum, &maximum);
    KeySym* map = XGetKeyboardMapping(m_display, ::KeyCode(minimum), maximum - minimum + 1, &perKeycode);
    ::KeyCode spare = 0;
    for (int code = maximum; map && code >= minimum && !spare; --code) {
        bool empty = true;
        for (int i = 0; i < perKeycode; ++i)
            empty = empty && map[(code - minimum) * perKeycode + i] == NoSymbol;
        if (empty)
            spare = ::KeyCode(code);
    }
    if (map)
        XFree(map);
    if (!spare) {
        qCWarning(lcDesktop) << "no key code is free for a key the layout lacks";
        return 0;
    }
    std::array<KeySym, 2> syms = {keysym, keysym};
    XChangeKeyboardMapping(m_display, spare, int(syms.size()), syms.data(), 1);
    XSync(m_display, False);
    m_lentKeycodes.append({keysym, spare});
    return spare;
}

void X11Desktop::returnLentKeycodes()
{
    if (!m_display || m_lentKeycodes.isEmpty())
        return;
    std::array<KeySym, 2> nothing = {NoSymbol, NoSymbol};
    for (const auto& [sym, code] : std::as_const(m_lentKeycodes))
        XChangeKeyboardMapping(m_display, code, int(nothing.size()), nothing.data(), 1);
    XSync(m_display, False);
    m_lentKeycodes.clear();
}

void X11Desktop::tapKeysym(unsigned long keysym, const QList<unsigned long>& modifiers, int times)
{
    if (!m_display || times <= 0)
        return;
    // Refresh the key map if the layout changed since the last keys.
    takeEvents();

    std::vector<::KeyCode> modifierCodes;
    for (const unsigned long modifier : modifiers) {
        if (const ::KeyCode code = keycodeFor(modifier))
            modifierCodes.push_back(code);
    }
    const ::KeyCode key = keycodeFor(keysym);
    if (key != 0) {
        // A modifier the user presses for the next key (a Shift before a capital) as these go
        // out would change them: Ctrl+Shift+V is no paste. Lifted around them, under a server
        // grab so that no release of the user's comes in between and is lost.
        const std::vector<unsigned char>& userModifiers = modifierKeycodes();
        XGrabServer(m_display);
        bool held = false;
        const std::vector<unsigned> lifted = x11tap::liftKeys(
            m_display,
            [&](unsigned code) {
                return std::find(userModifiers.begin(), userModifiers.end(), code) != userModifiers.end() &&
                       std::find(modifierCodes.begin(), modifierCodes.end(), code) == modifierCodes.end();
            },
            &held);
        for (int i = 0; i < times; ++i) {
            for (const ::KeyCode code : modifierCodes)
                XTestFakeKeyEvent(m_display, code, True, 0);
            XTestFakeKeyEvent(m_display, key, True, 0);
            XTestFakeKeyEvent(m_display, key, False, 0);
            for (auto it = modifierCodes.rbegin(); it != modifierCodes.rend(); ++it)
                XTestFakeKeyEvent(m_display, *it, False, 0);
        }
        x11tap::putBack(m_display, lifted);
        XUngrabServer(m_display);
    }
    XFlush(m_display);
    // Applications read the key map when they get to the mapping change, which may be after the
    // keys have gone out: a lent key code keeps its keysym for a while, then goes back.
    if (!m_lentKeycodes.isEmpty())
        m_returnLentKeycodes.start();
}

void X11Desktop::sendBackspaces(int count)
{
    tapKeysym(XK_BackSpace, {}, count);
}

void X11Desktop::sendEscape()
{
    tapKeysym(XK_Escape, {}, 1);
}

void X11Desktop::sendPaste(const DesktopWindow& target)
{
    const QString chord = pasteChordFor(target.windowClass);
    if (chord == QLatin1String("shift+Insert"))
        tapKeysym(XK_Insert, {XK_Shift_L}, 1);
    else if (chord == QLatin1String("ctrl+shift+v"))
        tapKeysym(XK_v, {XK_Control_L, XK_Shift_L}, 1);
    else
        tapKeysym(XK_v, {XK_Control_L}, 1);
}

bool X11Desktop::pastesFromSelection(const DesktopWindow& target) const
{
    return pastesFromPrimary(target.windowClass);
}

void X11Desktop::flush()
{
    if (m_display)
        XSync(m_display, False);
}

bool X11Desktop::openUrl(const QString& url)
{
    return QProcess::startDetached(QStringLiteral("xdg-open"), {url});
}

bool X11Desktop::launchDesktopEntry(const QString& pathOrId, QString* error)
{
    QString path = pathOrId;
    if (!QFileInfo(path).isAbsolute()) {
        path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, pathOrId);
        // A desktop-file id names subfolders with dashes: kde-kate.desktop is kde/kate.desktop.
        if (path.isEmpty() && pathOrId.contains(u'-'))
            path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation, QString(pathOrId).replace(u'-', u'/'));
    }
    if (path.isEmpty() || !QFileInfo::exists(path)) {
        if (error)
            *error = QStringLiteral("The application \"%1\" is not installed.").arg(pathOrId);
        return false;
    }

    if (!QStandardPaths::findExecutable(QStringLiteral("gio")).isEmpty())
        return QProcess::startDetached(QStringLiteral("gio"), {QStringLiteral("launch"), path});

    QStringList command = QProcess::splitCommand(removeFieldCodes(execOfDesktopEntry(path)));
    if (command.isEmpty()) {
        if (error)
            *error = QStringLiteral("The application entry \"%1\" says nothing to run.").arg(path);
        return false;
    }
    const QString program = command.takeFirst();
    if (!QProcess::startDetached(program, command)) {
        if (error)
            *error = QStringLiteral("Cannot start \"%1\".").arg(program);
        return false;
    }
    return true;
}

QString X11Desktop::pasteChordFor(const QString& windowClass)
{
    const QString name = windowClass.toLower();
    if (primaryClasses().contains(name))
        return QStringLiteral("shift+Insert");
    if (terminalClasses().contains(name))
        return QStringLiteral("ctrl+shift+v");
    return QStringLiteral("ctrl+v");
}

bool X11Desktop::pastesFromPrimary(const QString& windowClass)
{
    return primaryClasses().contains(windowClass.toLower());
}

bool X11Desktop::isWindowOf(const DesktopWindow& app, quint64 window) const
{
    if (!m_display || !app.isValid() || window == 0) {
        return false;
    }
    // The server gives each connection its own range of resource ids: the bits above the mask
    // name the client that made a window.
    const quint64 mask = xcb_get_setup(XGetXCBConnection(m_display))->resource_id_mask;
    return (window & ~mask) == (app.id & ~mask);
}

} // namespace tavo
