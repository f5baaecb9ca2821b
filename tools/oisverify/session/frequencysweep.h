// "oisverify run --sweep-freq LIST": the same verification at each of several shake frequencies,
// to see how the module's suppression falls with frequency. Each point is a complete session of
// its own (the node told the frequency through its property, the simulated table shaking at it)
// with its files in a folder of its own; the sweep keeps each point's SR, node and truth.
#ifndef ZELK_TOOLS_OISVERIFY_FREQUENCYSWEEP_H
#define ZELK_TOOLS_OISVERIFY_FREQUENCYSWEEP_H

#include <stdint.h>

#include <string>
#include <vector>

#include "session/runconfig.h"

namespace oisverify
{

constexpr size_t kMaxSweepPoints = 64;

// Reads a frequency list: comma-separated whole frequencies in Hz or ranges FROM-TO with an
// optional step, FROM-TO/STEP ("2,4,8", "1-12", "2-20/2", "1,2,4-16/4"). The result is sorted
// without repeats; fails with a message for anything else, a frequency of 0, or more than
// kMaxSweepPoints frequencies.
bool ParseFrequencyList(const std::string& text, std::vector<uint32_t>* pList, std::string* pError);

// The command line of one point: the run's arguments without the sweep option, with --freq F.
std::vector<std::string> PointArguments(int argc, char** argv, int first, uint32_t frequencyHz);

struct SweepPoint
{
    uint32_t    frequencyHz = 0;
    RunConfig   config;
    bool        ran      = false; // the session could be set up
    std::string error;             // why not
    bool        hasSr    = false;  // the node published its SR
    float       horSrDb  = 0.0f;
    float       verSrDb  = 0.0f;
    bool        hasTruth = false;
    float       trueHorSrDb = 0.0f;
    float       trueVerSrDb = 0.0f;
    bool        pass     = false;
    std::string verdict; // the verdict's headline
};

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_FREQUENCYSWEEP_H
