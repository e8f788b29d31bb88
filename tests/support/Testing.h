#pragma once

// What the tests share: Qt Test, files, folders and processes, the temporary home, and literals.
#include "TempHome.h"

#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QThread>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;
