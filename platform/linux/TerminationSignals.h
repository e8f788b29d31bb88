#pragma once

// The session asks a program to end with SIGTERM (at logout), a terminal with
// SIGINT or SIGHUP. Each ends the event loop instead, so the launcher ends as
// after Quit: its delayed work done, its lock files removed.
class TerminationSignals {
public:
    // Needs the application object. A signal ignored since the start (nohup) stays ignored.
    static void install();
};
