// Simulator frames as node input buffers; see simframesource.h.
#include "simframesource.h"

namespace simsource
{

SimFrameSource::SimFrameSource(const sim::Scenario& scenario, UINT32 portId)
    : m_simulator(new sim::Simulator(scenario)), m_portId(portId), m_format(ChiFormatYUV420NV12)
{
}

CHINODEBUFFERHANDLE SimFrameSource::Frame(uint32_t index)
{
    m_simulator->Render(index, m_image);
    chihost::Nv12View view;
    view.width    = static_cast<uint32_t>(m_image.width);
    view.height   = static_cast<uint32_t>(m_image.height);
    view.stride   = static_cast<uint32_t>(m_image.stride);
    view.scanline = static_cast<uint32_t>(m_image.scanline);
    view.pLuma    = m_image.Luma();
    view.pChroma  = m_image.Chroma();
    return m_buffer.Wrap(view, m_portId, m_format) ? m_buffer.Handle() : nullptr;
}

chihost::InputProvider SimFrameSource::Provider()
{
    return [this](UINT64 frameNum) {
        CHINODEBUFFERHANDLE handle = Frame(static_cast<uint32_t>(frameNum));
        return (handle != nullptr) ? std::vector<CHINODEBUFFERHANDLE>{ handle } : std::vector<CHINODEBUFFERHANDLE>{};
    };
}

} // namespace simsource
