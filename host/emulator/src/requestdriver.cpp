// Request loop with the test app's side; see requestdriver.h.
#include "chihost/emulator/requestdriver.h"

#include <string.h>

#include <time.h>

#include "chihost/hostclock.h"

namespace chihost
{

namespace
{

UINT64 ThreadCpuNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<UINT64>(now.tv_sec) * 1000000000u + static_cast<UINT64>(now.tv_nsec);
}

} // namespace

const char* const kOisVerifySection = "com.zelk.node.oisverify";

AppPolicy StartThenVerifyApp()
{
    return [](UINT64 requestIndex, const PublishedInfo&) {
        AppRequest request;
        request.state = (requestIndex == 0) ? 1 : 3;
        return request;
    };
}

RequestDriver::RequestDriver(HostSession& session, CHIHANDLE hNode, AppPolicy policy)
    : m_session(session), m_hNode(hNode), m_policy(std::move(policy))
{
}

PublishedInfo RequestDriver::ReadPublished(UINT64 frameNum) const
{
    PublishedInfo info;
    info.hasSupportedFeature = m_session.ReadOutputValue(frameNum, kOisVerifySection, "SupportedFeature",
                                                         &info.supportedFeature).IsOk();
    info.hasState = m_session.ReadOutputValue(frameNum, kOisVerifySection, "oisState", &info.state).IsOk();
    info.hasSR    = m_session.ReadOutputValue(frameNum, kOisVerifySection, "oisXAxisSR", &info.horSR).IsOk() &&
                 m_session.ReadOutputValue(frameNum, kOisVerifySection, "oisYAxisSR", &info.verSR).IsOk();
    return info;
}

void RequestDriver::UseSimulatedClock(UINT64 startNs, UINT64 framePeriodNs)
{
    ChiHostClockUseSimulated(1, startNs);
    m_framePeriodNs = framePeriodNs;
}

RequestRecord RequestDriver::Submit()
{
    return Submit(m_inputs ? m_inputs(m_nextFrame) : std::vector<CHINODEBUFFERHANDLE>());
}

RequestRecord RequestDriver::Submit(const std::vector<CHINODEBUFFERHANDLE>& inputs)
{
    if (m_framePeriodNs != 0)
    {
        ChiHostClockAdvance(m_framePeriodNs);
    }
    RequestRecord record;
    record.frameNum = m_nextFrame++;
    record.asked    = m_policy ? m_policy(m_requestIndex, m_last) : AppRequest{ false, 0 };
    m_requestIndex++;
    if (record.asked.writeState)
    {
        m_session.WriteInputValue(record.frameNum, kOisVerifySection, "oisState", record.asked.state);
    }

    std::vector<CHINODEBUFFERHANDLE> inputList(inputs);
    CHINODEPROCESSREQUESTINFO        request;
    memset(&request, 0, sizeof(request));
    request.size          = sizeof(request);
    request.hNodeSession  = m_hNode;
    request.frameNum      = record.frameNum;
    request.inputNum      = static_cast<UINT32>(inputList.size());
    request.phInputBuffer = inputList.empty() ? nullptr : inputList.data();
    const UINT64 start    = ThreadCpuNs();
    record.result         = m_session.Callbacks().pProcessRequest(&request);
    record.nodeCpuNs      = ThreadCpuNs() - start;

    record.published = ReadPublished(record.frameNum);
    m_last           = record.published;
    return record;
}

std::vector<RequestRecord> RequestDriver::Run(UINT64 count, const std::function<bool(const RequestRecord&)>& stop)
{
    std::vector<RequestRecord> records;
    for (UINT64 i = 0; i < count; i++)
    {
        records.push_back(Submit());
        if (stop && stop(records.back()))
        {
            break;
        }
    }
    return records;
}

NegotiationResult NegotiateBuffers(HostSession& session, CHIHANDLE hNode, UINT32 width, UINT32 height)
{
    NegotiationResult            result;
    CHINODEBUFFERREQUIREMENT     downstream;
    CHIOUTPUTPORTQUERYBUFFERINFO output;
    CHIINPUTPORTQUERYBUFFERINFO  input;
    memset(&downstream, 0, sizeof(downstream));
    memset(&output, 0, sizeof(output));
    memset(&input, 0, sizeof(input));
    downstream.minW = downstream.optimalW = downstream.maxW = width;
    downstream.minH = downstream.optimalH = downstream.maxH = height;
    downstream.format                = ChiFormatYUV420NV12;
    output.outputPortId              = 0;
    output.numConnectedInputPorts    = 1;
    output.pBufferRequirement        = &downstream;
    output.outputPortFlags           = ChiNodeFlagRealTime;
    input.inputPortId                = 0;
    input.inputBufferOption.format   = ChiFormatYUV420NV12;

    CHINODEQUERYBUFFERINFO query;
    memset(&query, 0, sizeof(query));
    query.size                 = sizeof(query);
    query.hNodeSession         = hNode;
    query.numOutputPorts       = 1;
    query.pOutputPortQueryInfo = &output;
    query.numInputPorts        = 1;
    query.pInputOptions        = &input;
    result.queryResult         = session.Callbacks().pQueryBufferInfo(&query);
    result.input               = input.inputBufferOption;
    result.output              = output.outputBufferOption;

    CHINODEIMAGEFORMAT             chosen = { output.outputBufferOption.optimalW, output.outputBufferOption.optimalH };
    CHINODESETBUFFERPROPERTIESINFO set;
    memset(&set, 0, sizeof(set));
    set.size         = sizeof(set);
    set.hNodeSession = hNode;
    set.portId       = output.outputPortId;
    set.pFormat      = &chosen;
    result.setResult = session.Callbacks().pSetBufferInfo(&set);
    return result;
}

} // namespace chihost
