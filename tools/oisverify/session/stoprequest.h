// A request to end a run early, set by a signal: Ctrl-C (SIGINT), SIGTERM, or SIGPIPE when the
// reader of the tool's output went away. The handlers only record the first signal; the session
// checks the request before every frame and ends the way it ends at a verdict, so the device root
// is removed and the output folder gets what the run produced so far. A second SIGINT or SIGTERM
// takes the default action (ends the process at once, leaving the device root behind).
#ifndef ZELK_TOOLS_OISVERIFY_STOPREQUEST_H
#define ZELK_TOOLS_OISVERIFY_STOPREQUEST_H

#include <string>

namespace oisverify
{

// Installs the handlers for SIGINT, SIGTERM and SIGPIPE.
void InstallStopHandlers();

// The first signal that asked to stop, or 0.
int StopSignal();

// What a handler does; also for tests.
void RequestStop(int signal);
void ClearStopRequest();

// "SIGINT (Ctrl-C)", "SIGTERM", "SIGPIPE (output closed)"; "signal N" for others.
std::string DescribeStopSignal(int signal);

// The exit status of a process ended by a signal, as shells report it: 128 + the signal number.
int StopExitStatus(int signal);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_STOPREQUEST_H
