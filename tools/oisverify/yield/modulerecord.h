// One module's result as the yield statistics see it, whatever it came from: a module the
// population command ran through the node, or a report collected from a station (the node's
// oisVerify.json, a --json summary, a persist-file record). Fields a source does not carry stay
// unset (their has-flag false) and the statistics leave them out.
#ifndef ZELK_TOOLS_OISVERIFY_MODULERECORD_H
#define ZELK_TOOLS_OISVERIFY_MODULERECORD_H

#include <stdint.h>

#include <string>

namespace oisverify
{

struct ModuleRecord
{
    std::string id;      // module ID: given, drawn, or the report's folder or file name
    std::string fuseId;  // the key of the module's persist record, when known
    std::string setting; // the search setting it ran under ("STEP,LIMIT"), empty for none
    std::string source;  // where the record came from ("population", "oisVerify.json", ...)

    bool    runError = false; // the run could not be completed: says nothing about the module
    bool    finished = false; // the node reached a final state
    int32_t state    = 0;     // the last state the node published
    double  limitDb  = 18.0;

    // SR at the module's base gains, per image axis: the verification before any search.
    bool   hasBefore   = false;
    double beforeHorDb = 0.0;
    double beforeVerDb = 0.0;
    bool   passBefore  = false;

    // SR the module ends with: after a search the selected gains', otherwise the same as before.
    bool   hasAfter   = false;
    double afterHorDb = 0.0;
    double afterVerDb = 0.0;
    bool   passAfter  = false;

    bool   calibrated   = false; // a calibration run (the search was allowed)
    bool   searched     = false; // the node set at least one gain target
    bool   hasSelection = false;
    double selectedX    = 0.0; // gains written to the persist file, per gyro axis
    double selectedY    = 0.0;
    bool   hasIdeal     = false; // the simulated module's ideal gains are known
    double idealX       = 0.0;
    double idealY       = 0.0;
    bool   hasNearest   = false; // the search target nearest to the ideal gain, per gyro axis
    double nearestX     = 0.0;
    double nearestY     = 0.0;

    // The simulator's SR for the frames behind the final SR, per image axis.
    bool   hasTruth   = false;
    double trueHorDb  = 0.0;
    double trueVerDb  = 0.0;

    std::string reason; // the first reason of a FAIL, empty on PASS

    // Where a population module's time went, in CPU seconds (see ModuleTiming).
    double renderS   = 0.0;
    double nodeS     = 0.0;
    double emulatorS = 0.0;
    double totalS    = 0.0;
};

// The selected gain equals the search target nearest the ideal gain on both gyro axes (within a
// thousandth, as the node writes gains with six decimals).
bool SelectedNearestStep(const ModuleRecord& record);

} // namespace oisverify

#endif // ZELK_TOOLS_OISVERIFY_MODULERECORD_H
