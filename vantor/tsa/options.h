// The command line.
#pragma once

// Fills g_cfg with what the program starts with.
void init_config();

// Fills g_cfg from the command line, settings files first. Returns 0 to go on, else the status of
// the run (negative: a settings file failed); help, version and a missing file exit at once.
int parse_options(int argc, char **argv);
