// The entry: checks the command line, runs the one command its word names
// and turns a failure into its message. Returns the exit status.
#pragma once

int RunCommandLine(int argc, char** argv);
