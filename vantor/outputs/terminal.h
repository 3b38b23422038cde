// What standard output and standard error show on a terminal.
#pragma once

// From here on, what is written to stdout and stderr where these are terminals cannot command them:
// control bytes, and bytes that are no UTF-8, are shown as \x1b and so on. Names, tags and texts of
// the stream go through here as they are, and may hold anything. Files and pipes get every byte.
void show_control_bytes();
