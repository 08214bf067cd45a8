// The orderly end of the process on SIGTERM.
//
// Nothing installs it: the event loop's own handler ends the loop, and the start-up sequence then kills the
// children. It is kept for a build of the platform whose loop leaves signals alone.
#pragma once

// Writes a line to the output channel and ends every supervised child.
void ivarode_main_exit();

// SIGTERM ends the process with status 0. Any other number does nothing and gives 15, the number of the
// signal that is handled.
int ivarode_sig_handler(int signal_number);

// Installs the handler, and ivarode_main_exit at process exit. Returns 0.
int ivarode_sig_init();
