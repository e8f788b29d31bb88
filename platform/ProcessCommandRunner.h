#pragma once

#include "CommandRunner.h"

// Runs commands with QProcess, standard streams inherited.
class ProcessCommandRunner : public CommandRunner {
public:
    int run(const QString& program, const QStringList& arguments) override;
};
