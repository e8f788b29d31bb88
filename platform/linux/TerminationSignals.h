#pragma once

// The session asks a program to end with SIGTERM (at logout), a terminal with
// SIGINT or SIGHUP. The first one ends the event loop instead, so the launcher
// finishes as after Quit (its delayed work done, its lock given up) and then
// ends by that signal, as whoever waits expects; a second one ends it at once.
class TerminationSignals {
public:
    // Needs the application object. A signal ignored since the start (nohup) stays ignored.
    static void install();
    // The signal that ended the event loop, or 0.
    static int received();
    // Ends the process by that signal's default action.
    static void endBy(int number);
};
