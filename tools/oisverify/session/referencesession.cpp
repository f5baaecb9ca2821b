// The reference session and the suppression of the applied shake; see referencesession.h.
#include "session/referencesession.h"

#include "verdict/verdict.h"

namespace oisverify
{

namespace
{

// The blur the table's shake alone gives over the given frames: the same scenario with the OIS
// and its residual floor off, so sampling and exposure are those of the measured frames.
sim::BlurSr AppliedShakeBlur(const sim::Scenario& scenario, const std::vector<uint32_t>& frameIndices)
{
    sim::Scenario table       = scenario;
    table.ois.enabled         = false;
    table.ois.residualFloorPx = 0.0;
    const sim::Simulator      simulator(table);
    std::vector<sim::FourCentres> window;
    for (uint32_t index : frameIndices)
    {
        window.push_back(simulator.Truth(index).CropCentres());
    }
    return sim::ComputeBlurSr(window);
}

TrueSuppression MakeSuppression(const sim::BlurSr& applied, const sim::BlurSr& residual)
{
    TrueSuppression suppression;
    suppression.known                        = true;
    suppression.appliedShakePx               = { applied.horBlurPx, applied.verBlurPx };
    suppression.residualBlurPx               = { residual.horBlurPx, residual.verBlurPx };
    suppression.trueSuppressionDb.horizontal = static_cast<float>(SuppressionDb(applied.horBlurPx, residual.horBlurPx));
    suppression.trueSuppressionDb.vertical   = static_cast<float>(SuppressionDb(applied.verBlurPx, residual.verBlurPx));
    return suppression;
}

// The same module and table with the OIS off, writing nothing and keeping no fresh root.
RunConfig ReferenceConfig(const RunConfig& config)
{
    RunConfig reference           = config;
    reference.scenario.ois.enabled = false;
    reference.calibration.enabled  = false;
    reference.reference            = false;
    reference.outDir.clear();
    reference.device.root.keep = false;
    return reference;
}

ReferenceResult ReadReference(const RunResult& unstabilised)
{
    ReferenceResult reference;
    reference.ran             = true;
    reference.finalState      = unstabilised.finalState;
    reference.errors          = unstabilised.events.errors;
    reference.measured        = unstabilised.finished && unstabilised.finalState == kVerifiedState &&
                         unstabilised.events.hasSr;
    reference.referenceBlurPx = { unstabilised.events.horBlurPx, unstabilised.events.verBlurPx };
    reference.referenceSrDb   = { unstabilised.horSrDb, unstabilised.verSrDb };
    return reference;
}

} // namespace

TrueSuppression ShakeSuppression(const sim::Scenario& scenario, const std::vector<uint32_t>& frameIndices,
                                 const sim::BlurSr& residual)
{
    return MakeSuppression(AppliedShakeBlur(scenario, frameIndices), residual);
}

chihost::Status RunVerification(const RunConfig& config, const ProgressSink& progress, RunResult* pResult)
{
    ReferenceResult reference;
    if (config.reference)
    {
        RunResult       unstabilised;
        chihost::Status status = RunSession(ReferenceConfig(config), nullptr, &unstabilised);
        if (!status)
        {
            return chihost::Status::Error("the OIS-off reference session could not run: " + status.Message());
        }
        reference = ReadReference(unstabilised);
    }
    chihost::Status status = RunSession(config, progress, pResult);
    pResult->reference     = reference;
    ReferenceResult& ref   = pResult->reference;
    if (ref.measured && pResult->finished && pResult->finalState == kVerifiedState && pResult->events.hasSr)
    {
        // 10 log10(unstabilised / stabilised blur): the reference cancels out of the two SRs.
        ref.hasGain                        = true;
        ref.stabilisationGainDb.horizontal = pResult->horSrDb - ref.referenceSrDb.horizontal;
        ref.stabilisationGainDb.vertical   = pResult->verSrDb - ref.referenceSrDb.vertical;
    }
    return status;
}

} // namespace oisverify
