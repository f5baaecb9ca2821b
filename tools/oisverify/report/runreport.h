// What "oisverify run" prints: the session it is about to run, a progress line while frames
// stream (rewritten in place on a terminal, a line every N frames otherwise), and the verdict
// with the node's SR next to the simulator's true SR and the files written.
#ifndef ZELK_TOOLS_OISVERIFY_RUNREPORT_H
#define ZELK_TOOLS_OISVERIFY_RUNREPORT_H

#include <stdio.h>

#include <string>
#include <vector>

#include "session/runconfig.h"
#include "session/runsession.h"
#include "verdict/verdict.h"

namespace oisverify
{

// The verdict's inputs as the session left them.
VerdictInput MakeVerdictInput(const RunConfig& config, const RunResult& result);

// One line describing the source of frames, e.g. "simulated shake table, OIS on at gain 1.000".
std::string DescribeSource(const RunConfig& config);

// node - true in dB, with differences that round to zero shown as 0 rather than -0.00.
double SrDifference(float nodeSr, float trueSr);

// Whether the residual shake moves the chart's discs beyond the crop the node measures.
bool DiscsLeaveTheCrop(const RunConfig& config);

// Duration the node will measure on the simulated clock: verdict frames x frame period.
uint32_t ExpectedDurationMs(const AlgoParams& params);

// What the header warns of before the run, one text each without the "warning" label: a run the
// node's time limit will cut (-13), a shake the node's SR does not refer to, and the options'
// own warnings. The summary page lists the same texts.
std::vector<std::string> RunWarnings(const RunConfig& config);

void PrintRunHeader(FILE* pOut, const RunConfig& config);

std::string FormatProgress(const ProgressInfo& info);

class ProgressPrinter
{
public:
    // rewrite: one line updated with '\r' (a terminal); otherwise a line every `every` frames and
    // for the last request (every 0: no progress at all).
    ProgressPrinter(FILE* pOut, bool rewrite, uint32_t every) : m_pOut(pOut), m_rewrite(rewrite), m_every(every) {}
    void operator()(const ProgressInfo& info, bool last);

private:
    FILE*    m_pOut;
    bool     m_rewrite;
    uint32_t m_every;
    size_t   m_lastWidth = 0;
};

// "PASS  headline" or "FAIL  headline" after an empty line; colour: PASS in green and FAIL in red
// (for a terminal).
void PrintVerdictLine(FILE* pOut, const Verdict& verdict, bool colour);

// Frames measured and failed, the node's final state and its error lines.
void PrintSessionLine(FILE* pOut, const RunConfig& config, const RunResult& result);

// The verdict's notes, one line each.
void PrintVerdictNotes(FILE* pOut, const Verdict& verdict);

// The OIS-off reference session and the stabilisation gain against it, when there was one.
void PrintReference(FILE* pOut, const RunResult& result);

// The verdict line, the node's SR against the truth and the suppression of the applied shake, the
// reference and the session line.
void PrintVerdict(FILE* pOut, const RunConfig& config, const RunResult& result, const Verdict& verdict,
                  bool colour = false);

// The output folder and what each file in it holds.
void PrintOutputFiles(FILE* pOut, const RunConfig& config, const RunResult& result,
                      const std::vector<std::string>& ownFiles);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_RUNREPORT_H
