#pragma once

// Runs the application: creates the application object and its delegate,
// sends the launch notification and runs the main loop until it ends.
int ApplicationMain(int argc, char* argv[]);
