#pragma once

// What the tests share: Qt Test, files, folders, threads and processes, the temporary home, and literals.
#include "TempHome.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;
