// Worker processes for a population: each job (a module under a search setting) runs in a process
// forked for it, so that the emulated phone's process-wide state (properties, working directory,
// the node library and its statics) is fresh for every module and a crash costs one module. A
// worker that runs a calibration gets a network namespace of its own (unshare(CLONE_NEWNET)):
// the calibration service's abstract socket name is fixed by the node and abstract names are per
// namespace, so parallel services never meet. Where namespaces are not allowed, jobs that need
// the socket run one at a time. Workers sit in process groups of their own, so a Ctrl-C reaches
// only the parent, which stops them and keeps what finished.
#ifndef ZELK_TOOLS_OISVERIFY_WORKERPOOL_H
#define ZELK_TOOLS_OISVERIFY_WORKERPOOL_H

#include <signal.h>
#include <stddef.h>
#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "population/populationplan.h"
#include "yield/modulerecord.h"

namespace oisverify
{

struct PoolJob
{
    ModulePlan  module;
    TestSetting setting;
};

// Runs in the worker process: the job's result as one line (a summary document).
using JobRunner = std::function<std::string(const PoolJob& job)>;
// Called in the parent for every finished job, in the order jobs finish, with the worker's line;
// the line is empty when the worker gave none (the record then says how it ended).
using RecordSink = std::function<void(size_t jobIndex, const ModuleRecord& record, const std::string& line)>;
// Called in the parent about once a second and after every job: jobs finished, jobs running.
using PoolProgress = std::function<void(size_t finished, size_t running)>;

struct PoolOptions
{
    uint32_t workers   = 1;
    bool     namespaces = true; // give calibration workers their own network namespace
};

struct PoolSummary
{
    size_t finished    = 0;
    size_t interrupted = 0; // running jobs stopped by the stop flag
    bool   serialised  = false; // calibrations ran one at a time: no namespaces
};

// Whether this process may give a forked child its own network namespace; false with the reason.
bool NetworkNamespacesAvailable(std::string* pWhy);

// Runs the jobs; stops launching and ends running workers once *pStop is set. A worker that dies
// without a result gives a failed record saying how it ended.
PoolSummary RunPool(const std::vector<PoolJob>& jobs, const PoolOptions& options, const JobRunner& runner,
                    const RecordSink& sink, const PoolProgress& progress, volatile sig_atomic_t* pStop);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_WORKERPOOL_H
