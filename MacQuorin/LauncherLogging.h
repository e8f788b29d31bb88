#pragma once

#include <QLoggingCategory>

// Diagnostics of the application shell, off unless QT_LOGGING_RULES turns them on.
Q_DECLARE_LOGGING_CATEGORY(lcLauncher)
