#pragma once

#include <QByteArray>

// The desktop's permission for a window to come forward, which a later start hands over.
// Needs the GUI application object; the rest of the platform layer does not.
class WindowActivation {
public:
    // Hands the desktop's activation token to the next window activation.
    static void useToken(const QByteArray& token);
};
