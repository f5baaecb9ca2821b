// Frames of the shake-table simulator as a node's input buffers: renders the frame whose index is
// the request's frame number into an NV12 buffer and hands it to the request loop. The truth of
// every frame stays available for comparison with what the node measured.
#ifndef ZELK_TOOLS_SIMSOURCE_SIMFRAMESOURCE_H
#define ZELK_TOOLS_SIMSOURCE_SIMFRAMESOURCE_H

#include <memory>

#include "chihost/emulator/imagebuffer.h"
#include "chihost/emulator/requestdriver.h"
#include "sim/simulator.h"

namespace simsource
{

class SimFrameSource
{
public:
    explicit SimFrameSource(const sim::Scenario& scenario, UINT32 portId = 0);

    // Input provider for the request loop; the buffer stays valid until the next request.
    chihost::InputProvider Provider();
    // Renders frame `index` and returns its buffer (nullptr when the frame cannot be wrapped).
    CHINODEBUFFERHANDLE Frame(uint32_t index);

    sim::Simulator&       Simulator() { return *m_simulator; }
    const sim::Simulator& Simulator() const { return *m_simulator; }
    // Overrides the format code the buffers announce (the node measures only NV12).
    void SetFormat(UINT32 format) { m_format = format; }

private:
    std::unique_ptr<sim::Simulator> m_simulator;
    sim::Nv12Image                  m_image;
    chihost::ImageBuffer            m_buffer;
    UINT32                          m_portId;
    UINT32                          m_format;
};

} // namespace simsource

#endif // ZELK_TOOLS_SIMSOURCE_SIMFRAMESOURCE_H
