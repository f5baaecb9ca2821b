// One node in one emulated device, from creation to a verdict: the device root, the host session
// with the node library, the node created from the device's properties, buffers negotiated for
// the frame size, and the request loop on the simulated clock with the test app's side. Frames
// come from an input provider, so any source (a simulator, recorded files) can feed it.
#ifndef ZELK_CHIHOST_EMULATOR_NODESESSION_H
#define ZELK_CHIHOST_EMULATOR_NODESESSION_H

#include <string>
#include <vector>

#include "chihost/emulator/deviceroot.h"
#include "chihost/emulator/hostsession.h"
#include "chihost/emulator/requestdriver.h"

namespace chihost
{

struct NodeSessionOptions
{
    std::string        nodeLibraryPath;
    DeviceRootOptions  root;
    HostSessionOptions host;
    NodePropertyList   nodeProperties;
    UINT32             frameWidth   = 1440;
    UINT32             frameHeight  = 1080;
    double             frameRateHz  = 60.0; // the simulated clock advances 1/rate per request
    UINT64             clockStartNs = 1000000000ull;
    AppPolicy          app;                 // empty: start, then verify
    // Runs once the root is open and before the node is created (e.g. to place debug images).
    std::function<Status(DeviceRoot&)> prepareRoot;
};

// The verification is over: verified (4) or an error (negative).
CHIHOST_EMULATOR_API bool IsFinalState(INT32 state);

class CHIHOST_EMULATOR_API NodeSession
{
public:
    NodeSession() = default;
    ~NodeSession();
    NodeSession(const NodeSession&)            = delete;
    NodeSession& operator=(const NodeSession&) = delete;

    // Opens root and host session, creates the node (its result is kept in CreateResult) and
    // negotiates buffers. Fails with the emulator's message, or when the node refused creation.
    Status Open(const NodeSessionOptions& options);
    // Destroys the node, closes the session and the root.
    void Close();

    // One request with the provider's inputs for its frame number.
    RequestRecord Step();
    // Requests until the node publishes a final state, maxRequests were made, or onRequest
    // returns false; returns the records of this run.
    std::vector<RequestRecord> Run(UINT64 maxRequests,
                                   const std::function<bool(const RequestRecord&)>& onRequest = nullptr);

    void SetInputProvider(InputProvider provider);

    // The report the node wrote (empty when none) and the files of its output folder.
    std::string              ReadReport() const;
    std::vector<std::string> OutputFiles() const;
    std::string              OutputDirectory() const;

    CDKResult          CreateResult() const { return m_createResult; }
    CHIHANDLE          Node() const { return m_hNode; }
    DeviceRoot&        Root() { return m_root; }
    HostSession&       Host() { return m_host; }
    RequestDriver&     Driver() { return *m_driver; }
    const NegotiationResult& Negotiation() const { return m_negotiation; }

private:
    DeviceRoot                     m_root;
    HostSession                    m_host;
    std::unique_ptr<RequestDriver> m_driver;
    CHIHANDLE                      m_hNode        = nullptr;
    CDKResult                      m_createResult = CDKResultEFailed;
    NegotiationResult              m_negotiation;
};

} // namespace chihost

#endif // ZELK_CHIHOST_EMULATOR_NODESESSION_H
