#include "WindowActivation.h"

#include <QGuiApplication>
#include <QPointer>
#include <QTimer>
#include <QWindow>
#include <qpa/qplatformnativeinterface.h>

#include <xcb/xcb.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

// Whether a value must be quoted in a startup notification message.
bool needsQuoting(const QByteArray& value)
{
    return value.contains(' ') || value.contains('"') || value.contains('\\');
}

// Ends a launch's feedback (the busy cursor or spinner) with the startup notification "remove"
// message, as client messages of 20 bytes to the root window.
void endStartupNotification(const QByteArray& id)
{
    const auto* x11 = qApp->nativeInterface<QNativeInterface::QX11Application>();
    QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
    xcb_connection_t* connection = x11 ? x11->connection() : nullptr;
    if (!connection || !native)
        return;
    const auto root = xcb_window_t(quintptr(native->nativeResourceForIntegration("rootwindow")));
    const auto atom = [connection](const char* name) {
        xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, false, uint16_t(std::strlen(name)), name), nullptr);
        const xcb_atom_t found = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        std::free(reply);
        return found;
    };
    // A value with a blank, quote or backslash is quoted, its quotes and backslashes escaped.
    QByteArray value = id;
    if (needsQuoting(value))
        value = '"' + value.replace('\\', "\\\\").replace('"', "\\\"") + '"';
    const QByteArray message = "remove: ID=" + value + '\0';
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 8;
    event.window = root;
    event.type = atom("_NET_STARTUP_INFO_BEGIN");
    const xcb_atom_t more = atom("_NET_STARTUP_INFO");
    for (qsizetype sent = 0; sent < message.size(); sent += 20, event.type = more) {
        std::memset(event.data.data8, 0, sizeof event.data.data8);
        std::memcpy(event.data.data8, message.constData() + sent,
                    size_t(std::min<qsizetype>(20, message.size() - sent)));
        xcb_send_event(connection, false, root, XCB_EVENT_MASK_PROPERTY_CHANGE,
                       reinterpret_cast<const char*>(&event));
    }
    xcb_flush(connection);
}

// The token goes where Qt's next window activation takes it from, and clears it. A window shown in this
// turn takes it only once it is on screen: a compositor ignores the activation of a window that it does
// not show yet, and spends the token all the same. Otherwise it is for this turn's activations only.
class WaylandActivation : public QObject {
public:
    explicit WaylandActivation(const QByteArray& token) : QObject(qApp), m_token(token)
    {
        qputenv("XDG_ACTIVATION_TOKEN", token);
        qApp->installEventFilter(this);
        QTimer::singleShot(0, this, [this] {
            if (m_shown)
                return;
            qunsetenv("XDG_ACTIVATION_TOKEN");
            qApp->removeEventFilter(this);
            deleteLater();
        });
    }

private:
    bool eventFilter(QObject* object, QEvent* event) override
    {
        auto* window = qobject_cast<QWindow*>(object);
        if (!window || !window->isTopLevel() || (m_shown && window != m_shown))
            return false;
        if (event->type() == QEvent::Show && !m_shown) {
            m_shown = window;
            qunsetenv("XDG_ACTIVATION_TOKEN");
        } else if (event->type() == QEvent::Expose && m_shown && window->isExposed()) {
            // After the window has drawn itself in answer to this event: then the compositor shows it.
            QTimer::singleShot(0, this, [this] {
                qputenv("XDG_ACTIVATION_TOKEN", m_token);
                if (m_shown)
                    m_shown->requestActivate();
                qunsetenv("XDG_ACTIVATION_TOKEN");
                deleteLater();
            });
            qApp->removeEventFilter(this);
        }
        return false;
    }

    QByteArray m_token;
    QPointer<QWindow> m_shown;
};

} // namespace

void WindowActivation::useToken(const QByteArray& token)
{
    if (token.isEmpty())
        return;
    const QString system = QGuiApplication::platformName();
    if (system.startsWith(u"wayland")) {
        new WaylandActivation(token); // deletes itself once the token is used or given up
    } else if (system == u"xcb") {
        // The startup id goes on the next window shown, which ends that start's feedback with it.
        QPlatformNativeInterface* native = QGuiApplication::platformNativeInterface();
        using SetStartupId = void (*)(const char*);
        void* function
            = native ? reinterpret_cast<void*>(native->nativeResourceFunctionForIntegration("setstartupid"))
                     : nullptr;
        const auto set = reinterpret_cast<SetStartupId>(function);
        if (!set)
            return;
        // Qt writes the id into its own message unquoted: one that must be quoted is ended here only.
        if (needsQuoting(token)) {
            QTimer::singleShot(0, qApp, [token] { endStartupNotification(token); });
            return;
        }
        set(token.constData());
        // A window that was already shown ends nothing: once this turn's windows are shown, a start
        // still unended is ended here.
        QTimer::singleShot(0, qApp, [native, set, token] {
            if (token == static_cast<const char*>(native->nativeResourceForIntegration("startupid"))) {
                set("");
                endStartupNotification(token);
            }
        });
    }
}
