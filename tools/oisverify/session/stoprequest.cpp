// Signal-driven stop request; see stoprequest.h.
#include "session/stoprequest.h"

#include <signal.h>
#include <string.h>

namespace oisverify
{

namespace
{

volatile sig_atomic_t g_stopSignal = 0;

void OnStopSignal(int signal)
{
    if (g_stopSignal == 0)
    {
        g_stopSignal = signal;
    }
}

void Install(int signal, int flags)
{
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_handler = OnStopSignal;
    sigemptyset(&action.sa_mask);
    // No SA_RESTART: a blocking call returns early, so a wait notices the request sooner.
    action.sa_flags = flags;
    sigaction(signal, &action, nullptr);
}

} // namespace

void InstallStopHandlers()
{
    // SA_RESETHAND: the first Ctrl-C stops the run in order, a second one ends it at once.
    Install(SIGINT, SA_RESETHAND);
    Install(SIGTERM, SA_RESETHAND);
    // Every later write to the closed pipe raises SIGPIPE again; it must never end the process.
    Install(SIGPIPE, 0);
}

int StopSignal()
{
    return g_stopSignal;
}

void RequestStop(int signal)
{
    OnStopSignal(signal);
}

void ClearStopRequest()
{
    g_stopSignal = 0;
}

std::string DescribeStopSignal(int signal)
{
    switch (signal)
    {
    case SIGINT: return "SIGINT (Ctrl-C)";
    case SIGTERM: return "SIGTERM";
    case SIGPIPE: return "SIGPIPE (the output was closed)";
    default: return "signal " + std::to_string(signal);
    }
}

int StopExitStatus(int signal)
{
    return 128 + signal;
}

} // namespace oisverify
