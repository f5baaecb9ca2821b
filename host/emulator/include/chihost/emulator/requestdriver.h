// The camera framework's request loop for one node, with the test app's side of the
// conversation: before each request the app writes the state it asks for into the request's
// "oisState" setting; after it, the app reads the four tags the node published (supported
// feature, state, horizontal and vertical SR). The default app asks for 1 (start) on its first
// request and for 3 (verify) on every later one, as the factory test app does.
#ifndef ZELK_CHIHOST_EMULATOR_REQUESTDRIVER_H
#define ZELK_CHIHOST_EMULATOR_REQUESTDRIVER_H

#include <functional>
#include <vector>

#include "chihost/emulator/hostsession.h"
#include "chihost/emulator/status.h"

namespace chihost
{

extern CHIHOST_EMULATOR_API const char* const kOisVerifySection;

// What the node published for one request; a tag the node did not set reads as absent.
struct PublishedInfo
{
    bool  hasSupportedFeature = false;
    bool  hasState            = false;
    bool  hasSR               = false;
    INT32 supportedFeature    = 0;
    INT32 state               = 0;
    FLOAT horSR               = 0.0f;
    FLOAT verSR               = 0.0f;
};

// The app's choice for a request: the state to write, or no setting at all.
struct AppRequest
{
    bool  writeState = true;
    INT32 state      = 0;
};

// Decides, from the request number (0 first) and what the node published last, what the app asks.
using AppPolicy = std::function<AppRequest(UINT64 requestIndex, const PublishedInfo& last)>;

// Start on the first request, verify on all later ones.
CHIHOST_EMULATOR_API AppPolicy StartThenVerifyApp();

// The input buffers of a request, by frame number (may be empty).
using InputProvider = std::function<std::vector<CHINODEBUFFERHANDLE>(UINT64 frameNum)>;

// What buffer negotiation settled: the node's answers and the sizes it asked for.
struct NegotiationResult
{
    CDKResult                queryResult = CDKResultEFailed;
    CDKResult                setResult   = CDKResultEFailed;
    CHINODEBUFFERREQUIREMENT input;
    CHINODEBUFFERREQUIREMENT output;
};

// Negotiates one input and one output port with the node before streaming, as the framework
// does: the query (the output connected to one downstream input wanting width x height), then
// the set call with the size the node asked for on its output.
CHIHOST_EMULATOR_API NegotiationResult NegotiateBuffers(HostSession& session, CHIHANDLE hNode, UINT32 width,
                                                        UINT32 height);

struct RequestRecord
{
    UINT64        frameNum  = 0;
    AppRequest    asked;
    CDKResult     result    = CDKResultSuccess;
    PublishedInfo published;
    UINT64        nodeCpuNs = 0; // CPU time of the calling thread in the node's process-request callback
};

class CHIHOST_EMULATOR_API RequestDriver
{
public:
    RequestDriver(HostSession& session, CHIHANDLE hNode, AppPolicy policy = StartThenVerifyApp());

    // One request: the app's setting, the node's process-request callback with the given input
    // buffers, then the published tags. Frame numbers count from firstFrame upwards.
    RequestRecord Submit();
    RequestRecord Submit(const std::vector<CHINODEBUFFERHANDLE>& inputs);
    // Submits requests until stop() is true for the last record or count requests were made.
    std::vector<RequestRecord> Run(UINT64 count, const std::function<bool(const RequestRecord&)>& stop = nullptr);

    // Requests without explicit inputs take theirs from the provider.
    void SetInputProvider(InputProvider provider) { m_inputs = std::move(provider); }
    // Switches the platform clock to simulated time starting at startNs and advances it by one
    // frame period before every request, so timings do not depend on the machine's speed.
    void UseSimulatedClock(UINT64 startNs, UINT64 framePeriodNs);
    // Advances the (already simulated) clock by periodNs before every request without resetting
    // it, for several drivers sharing the process's clock.
    void AdvanceClockPerRequest(UINT64 periodNs) { m_framePeriodNs = periodNs; }

    void   SetFirstFrame(UINT64 frameNum) { m_nextFrame = frameNum; }
    UINT64 NextFrame() const { return m_nextFrame; }
    const PublishedInfo& LastPublished() const { return m_last; }

private:
    PublishedInfo ReadPublished(UINT64 frameNum) const;

    HostSession&  m_session;
    CHIHANDLE     m_hNode;
    AppPolicy     m_policy;
    InputProvider m_inputs;
    UINT64        m_framePeriodNs = 0;
    UINT64        m_nextFrame    = 0;
    UINT64        m_requestIndex = 0;
    PublishedInfo m_last;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_REQUESTDRIVER_H
