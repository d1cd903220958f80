#include "platform/x11/x11_raw_keys.h"

#include <array>

// X11 last: its macros (None, KeyPress, Bool, Status) clash with Qt's names.
#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>

namespace tavo::x11tap {

namespace {

// A raw event of a grabbed key is followed by the grabbed press at once; if none comes, the grab
// did not fire (another client's grab won) and the raw event stands for the key.
constexpr auto RawGrace = 30ms;

} // namespace

void RawKeys::open(Display* display, unsigned long root, int xiOpcode)
{
    m_display = display;
    m_xiOpcode = xiOpcode;
    std::array<unsigned char, XIMaskLen(XI_LASTEVENT)> bits{};
    XISetMask(bits.data(), XI_RawKeyPress);
    XIEventMask mask;
    mask.deviceid = XIAllMasterDevices;
    mask.mask_len = int(bits.size());
    mask.mask = bits.data();
    XISelectEvents(display, root, &mask, 1);
}

bool RawKeys::read(XEvent& event, std::optional<unsigned>* keycode, unsigned long* serial) const
{
    if (event.type != GenericEvent || event.xcookie.extension != m_xiOpcode)
        return false;
    if (XGetEventData(m_display, &event.xcookie)) {
        if (event.xcookie.evtype == XI_RawKeyPress) {
            *keycode = unsigned(static_cast<const XIRawEvent*>(event.xcookie.data)->detail);
            *serial = event.xcookie.serial;
        }
        XFreeEventData(m_display, &event.xcookie);
    }
    return true;
}

void RawKeys::expectGrabbed(unsigned keycode, KeyEvent event, bool surely)
{
    m_pending = Pending{keycode, std::move(event), surely};
    m_since = Clock::now();
}

std::optional<KeyEvent> RawKeys::takeFor(unsigned keycode)
{
    if (!m_pending || m_pending->keycode != keycode)
        return std::nullopt;
    KeyEvent event = std::move(m_pending->event);
    m_pending.reset();
    return event;
}

std::optional<RawKeys::Pending> RawKeys::take()
{
    std::optional<Pending> pending;
    pending.swap(m_pending);
    return pending;
}

bool RawKeys::due(Clock::time_point now) const
{
    return m_pending && now - m_since >= RawGrace;
}

Clock::time_point RawKeys::deadline() const
{
    return m_pending ? m_since + RawGrace : Clock::time_point::max();
}

} // namespace tavo::x11tap
