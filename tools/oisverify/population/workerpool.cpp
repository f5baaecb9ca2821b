// Worker processes for a population; see workerpool.h.
#include "population/workerpool.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <sched.h>
#include <string.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "yield/summaryrecord.h"

namespace oisverify
{

namespace
{

constexpr int kProgressIntervalMs = 1000;
constexpr size_t kReadChunkBytes  = 4096;

struct Worker
{
    pid_t       pid = -1;
    int         fd  = -1;
    size_t      job = 0;
    std::string output;
};

// The worker's side: isolate, run, write the record as one line, leave without the parent's
// exit handlers (the node library and emulator are torn down by the process ending).
[[noreturn]] void WorkerMain(const PoolJob& job, bool isolate, const JobRunner& runner, int fd)
{
    setpgid(0, 0);
    if (isolate && unshare(CLONE_NEWNET) != 0)
    {
        fprintf(stderr, "oisverify population: worker for %s: cannot enter a network namespace of its own: %s\n",
                job.module.id.c_str(), strerror(errno));
        _exit(3);
    }
    const std::string line = runner(job) + "\n";
    size_t            sent = 0;
    while (sent < line.size())
    {
        const ssize_t n = write(fd, line.data() + sent, line.size() - sent);
        if (n < 0 && errno == EINTR)
        {
            continue;
        }
        if (n <= 0)
        {
            break;
        }
        sent += static_cast<size_t>(n);
    }
    close(fd);
    _exit(0);
}

std::string DescribeExit(int status)
{
    if (WIFSIGNALED(status))
    {
        return "the worker was killed by signal " + std::to_string(WTERMSIG(status)) + " (" +
               strsignal(WTERMSIG(status)) + ")";
    }
    return "the worker exited with status " + std::to_string(WEXITSTATUS(status)) + " without a result";
}

bool Launch(const std::vector<PoolJob>& jobs, size_t index, bool isolate, const JobRunner& runner, Worker* pWorker)
{
    int fds[2];
    if (pipe(fds) != 0)
    {
        return false;
    }
    fflush(stdout);
    fflush(stderr);
    const pid_t pid = fork();
    if (pid < 0)
    {
        close(fds[0]);
        close(fds[1]);
        return false;
    }
    if (pid == 0)
    {
        close(fds[0]);
        WorkerMain(jobs[index], isolate, runner, fds[1]);
    }
    close(fds[1]);
    // Also from this side, so that a signal to the terminal's group cannot reach it first.
    setpgid(pid, pid);
    *pWorker = Worker{ pid, fds[0], index, "" };
    return true;
}

// Collects a finished worker: its line, or a failed record with how it ended.
ModuleRecord Reap(const std::vector<PoolJob>& jobs, Worker& worker, std::string* pLine)
{
    close(worker.fd);
    int status = 0;
    while (waitpid(worker.pid, &status, 0) < 0 && errno == EINTR)
    {
    }
    ModuleRecord record;
    std::string  why;
    *pLine = worker.output.substr(0, worker.output.find('\n'));
    if (!RecordFromSummaryText(*pLine, &record, &why))
    {
        pLine->clear();
        const ModulePlan& module = jobs[worker.job].module;
        record                   = ModuleRecord();
        record.id                = module.id;
        record.fuseId            = module.id;
        record.setting           = jobs[worker.job].setting.Label();
        record.source            = "population";
        record.limitDb           = jobs[worker.job].setting.limitDb;
        record.calibrated        = jobs[worker.job].setting.calibrate;
        record.hasIdeal          = true;
        record.idealX            = module.idealX;
        record.idealY            = module.idealY;
        record.runError          = true;
        record.reason            = DescribeExit(status);
    }
    return record;
}

void StopAll(std::vector<Worker>& running)
{
    for (Worker& worker : running)
    {
        kill(worker.pid, SIGKILL);
        close(worker.fd);
        while (waitpid(worker.pid, nullptr, 0) < 0 && errno == EINTR)
        {
        }
    }
}

// Reads what the workers wrote; returns the indices (into running) of workers whose pipe closed.
std::vector<size_t> PollWorkers(std::vector<Worker>& running)
{
    std::vector<pollfd> fds;
    for (const Worker& worker : running)
    {
        fds.push_back({ worker.fd, POLLIN, 0 });
    }
    std::vector<size_t> closed;
    if (poll(fds.data(), fds.size(), kProgressIntervalMs) <= 0)
    {
        return closed;
    }
    for (size_t i = 0; i < fds.size(); i++)
    {
        if ((fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0)
        {
            continue;
        }
        char          buffer[kReadChunkBytes];
        const ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
        if (n > 0)
        {
            running[i].output.append(buffer, static_cast<size_t>(n));
        }
        else if (n == 0 || errno != EINTR)
        {
            closed.push_back(i);
        }
    }
    return closed;
}

} // namespace

bool NetworkNamespacesAvailable(std::string* pWhy)
{
    int fds[2];
    if (pipe(fds) != 0)
    {
        *pWhy = strerror(errno);
        return false;
    }
    const pid_t pid = fork();
    if (pid == 0)
    {
        close(fds[0]);
        const int error = (unshare(CLONE_NEWNET) == 0) ? 0 : errno;
        (void)!write(fds[1], &error, sizeof(error));
        _exit(0);
    }
    close(fds[1]);
    int error = ECHILD;
    if (pid < 0 || read(fds[0], &error, sizeof(error)) != static_cast<ssize_t>(sizeof(error)))
    {
        error = (pid < 0) ? errno : ECHILD;
    }
    close(fds[0]);
    if (pid > 0)
    {
        waitpid(pid, nullptr, 0);
    }
    *pWhy = (error == 0) ? "" : strerror(error);
    return error == 0;
}

PoolSummary RunPool(const std::vector<PoolJob>& jobs, const PoolOptions& options, const JobRunner& runner,
                    const RecordSink& sink, const PoolProgress& progress, volatile sig_atomic_t* pStop)
{
    PoolSummary summary;
    bool        calibrating = false;
    for (const PoolJob& job : jobs)
    {
        calibrating = calibrating || job.setting.calibrate;
    }
    const bool isolate = calibrating && options.namespaces;
    summary.serialised = calibrating && !options.namespaces;
    const size_t workers = summary.serialised ? 1 : std::max<uint32_t>(options.workers, 1);
    std::vector<Worker> running;
    size_t              next = 0;
    while ((next < jobs.size() || !running.empty()) && !*pStop)
    {
        while (next < jobs.size() && running.size() < workers && !*pStop)
        {
            Worker worker;
            if (!Launch(jobs, next, isolate, runner, &worker))
            {
                break; // no process or pipe to spare: wait for one to finish
            }
            running.push_back(worker);
            next++;
        }
        if (running.empty())
        {
            break; // nothing could be launched at all
        }
        if (progress)
        {
            progress(summary.finished, running.size());
        }
        std::vector<size_t> closed = PollWorkers(running);
        for (auto it = closed.rbegin(); it != closed.rend(); ++it)
        {
            std::string        line;
            const ModuleRecord record = Reap(jobs, running[*it], &line);
            const size_t       job    = running[*it].job;
            running.erase(running.begin() + static_cast<std::ptrdiff_t>(*it));
            summary.finished++;
            sink(job, record, line);
        }
    }
    summary.interrupted = running.size();
    StopAll(running);
    return summary;
}

} // namespace oisverify
